#import <AppKit/AppKit.h>

#import "layout/LayoutState.h"

using namespace platform::layout;

@implementation NSView (PlatformLayoutDirection)

- (NSUserInterfaceLayoutDirection)userInterfaceLayoutDirection {
  LayoutState *state = ExistingState(self);
  return state && state->direction ? *state->direction : [NSApp userInterfaceLayoutDirection];
}

- (void)setUserInterfaceLayoutDirection:(NSUserInterfaceLayoutDirection)direction {
  StateOf(self).direction = direction;
  [self setNeedsLayout:YES];
}

@end
