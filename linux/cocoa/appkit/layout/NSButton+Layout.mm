#import <AppKit/AppKit.h>

#import "drawing/ControlInsets.h"

@implementation NSButton (PlatformLayout)

- (NSEdgeInsets)alignmentRectInsets {
  return PlatformInsetsOfCell([self cell]);
}

- (NSSize)intrinsicContentSize {
  const NSRect frame = {NSZeroPoint, [[self cell] cellSize]};
  return [self alignmentRectForFrame:frame].size;
}

// The title stands in the middle of the height.
- (CGFloat)baselineOffsetFromBottom {
  const CGFloat line = [[self attributedTitle] size].height;
  return ([self intrinsicContentSize].height - line) / 2 - [[self font] descender];
}

- (CGFloat)firstBaselineOffsetFromTop {
  return [self intrinsicContentSize].height - [self baselineOffsetFromBottom];
}

@end
