#import <AppKit/AppKit.h>

@implementation NSView (PlatformAlignment)

- (NSEdgeInsets)alignmentRectInsets {
  return NSEdgeInsetsMake(0, 0, 0, 0);
}

- (NSRect)alignmentRectForFrame:(NSRect)frame {
  const NSEdgeInsets insets = [self alignmentRectInsets];
  const CGFloat lower = [[self superview] isFlipped] ? insets.top : insets.bottom;
  return NSMakeRect(NSMinX(frame) + insets.left, NSMinY(frame) + lower,
                    NSWidth(frame) - insets.left - insets.right,
                    NSHeight(frame) - insets.top - insets.bottom);
}

- (NSRect)frameForAlignmentRect:(NSRect)alignmentRect {
  const NSEdgeInsets insets = [self alignmentRectInsets];
  const CGFloat lower = [[self superview] isFlipped] ? insets.top : insets.bottom;
  return NSMakeRect(NSMinX(alignmentRect) - insets.left, NSMinY(alignmentRect) - lower,
                    NSWidth(alignmentRect) + insets.left + insets.right,
                    NSHeight(alignmentRect) + insets.top + insets.bottom);
}

- (CGFloat)baselineOffsetFromBottom {
  return 0;
}

- (CGFloat)lastBaselineOffsetFromBottom {
  return [self baselineOffsetFromBottom];
}

- (CGFloat)firstBaselineOffsetFromTop {
  return 0;
}

@end
