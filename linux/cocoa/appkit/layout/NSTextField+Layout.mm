#import <AppKit/AppKit.h>

#include <cmath>

#import "drawing/ControlInsets.h"
#import "layout/LayoutEngine.h"
#import "layout/LayoutState.h"

using namespace platform::layout;

namespace {

/// What border and bezel take of a text field's alignment rectangle, on both sides together.
NSSize SurroundOf(NSTextField *field) {
  const NSRect large = NSMakeRect(0, 0, 1000, 1000);
  const NSRect outer = [field alignmentRectForFrame:large];
  const NSRect inner = [[field cell] titleRectForBounds:large];
  return NSMakeSize(NSWidth(outer) - NSWidth(inner), NSHeight(outer) - NSHeight(inner));
}

bool Wraps(NSTextField *field) {
  NSCell *cell = [field cell];
  return ![cell usesSingleLineMode] && ([cell lineBreakMode] == NSLineBreakByWordWrapping ||
                                        [cell lineBreakMode] == NSLineBreakByCharWrapping);
}

NSSize LineSizeOf(NSTextField *field) {
  NSDictionary *attributes = [NSDictionary dictionaryWithObject:[field font]
                                                         forKey:NSFontAttributeName];
  return [@"A" sizeWithAttributes:attributes];
}

}  // namespace

@implementation NSTextField (PlatformLayout)

- (NSEdgeInsets)alignmentRectInsets {
  return PlatformInsetsOfCell([self cell]);
}

- (CGFloat)preferredMaxLayoutWidth {
  const LayoutState *state = ExistingState(self);
  return state == nullptr ? 0 : state->preferredMaxLayoutWidth;
}

- (void)setPreferredMaxLayoutWidth:(CGFloat)width {
  StateOf(self).preferredMaxLayoutWidth = width;
  InvalidateIfLaidOut(self);
}

// GNUstep's cellSizeForBounds: does not wrap, so the text is measured as the cell will draw it.
- (NSSize)intrinsicContentSize {
  const NSSize surround = SurroundOf(self);
  NSAttributedString *text = [[self cell] attributedStringValue];
  NSSize size = [text length] == 0 ? NSMakeSize(0, LineSizeOf(self).height) : [text size];
  const CGFloat available = [self preferredMaxLayoutWidth] - surround.width;
  if (available > 0 && std::ceil(size.width) > available && Wraps(self)) {
    // The height only limits; it must not be 0, which would stand for no limit in width either.
    size = [text boundingRectWithSize:NSMakeSize(available, 1e6)
                              options:NSStringDrawingUsesLineFragmentOrigin]
               .size;
    size.width = std::fmin(size.width, available);
  }
  const CGFloat width =
      [self isEditable] ? NSViewNoIntrinsicMetric : std::ceil(size.width + surround.width);
  return NSMakeSize(width, std::ceil(size.height + surround.height));
}

- (CGFloat)baselineOffsetFromBottom {
  return SurroundOf(self).height / 2 - [[self font] descender];
}

- (CGFloat)firstBaselineOffsetFromTop {
  return SurroundOf(self).height / 2 + LineSizeOf(self).height + [[self font] descender];
}

@end
