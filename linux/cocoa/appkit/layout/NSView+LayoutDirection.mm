#import <AppKit/AppKit.h>

#import "layout/LayoutState.h"

using namespace platform::layout;

@implementation NSView (PlatformLayoutDirection)

- (NSUserInterfaceLayoutDirection)userInterfaceLayoutDirection {
  LayoutState *state = existingState(self);
  return state && state->direction ? *state->direction : [NSApp userInterfaceLayoutDirection];
}

- (void)setUserInterfaceLayoutDirection:(NSUserInterfaceLayoutDirection)direction {
  stateOf(self).direction = direction;
  [self setNeedsLayout:YES];
}

@end
