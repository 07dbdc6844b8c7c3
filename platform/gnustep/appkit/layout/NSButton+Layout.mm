#import <AppKit/AppKit.h>

#include <algorithm>
#include <cmath>

namespace {

// A rounded push button as macOS shows it: 21 points high around a 13-point title, 14 points of
// bezel to either side. Larger titles keep their distance from the edges.
constexpr CGFloat kPushButtonHeight = 21;
constexpr CGFloat kPushButtonMargin = 14;
constexpr CGFloat kPushButtonPadding = 2;

bool isTitledPushButton(NSButton *button) {
  return [button isBordered] && [button bezelStyle] == NSRoundedBezelStyle &&
         [button imagePosition] == NSNoImage && ![button isKindOfClass:[NSPopUpButton class]];
}

}  // namespace

@implementation NSButton (PlatformLayout)

- (NSSize)intrinsicContentSize {
  if (!isTitledPushButton(self)) {
    const NSSize size = [[self cell] cellSize];
    return NSMakeSize(std::ceil(size.width), std::ceil(size.height));
  }
  const NSSize title = [[self attributedTitle] size];
  return NSMakeSize(std::ceil(title.width) + 2 * kPushButtonMargin,
                    std::max(kPushButtonHeight, std::ceil(title.height) + 2 * kPushButtonPadding));
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
