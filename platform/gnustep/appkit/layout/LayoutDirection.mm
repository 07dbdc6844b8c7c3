#import <AppKit/AppKit.h>

#import "LayoutState.h"

using namespace platform::layout;

@implementation NSApplication (PlatformLayoutDirection)

- (NSUserInterfaceLayoutDirection)userInterfaceLayoutDirection {
  // The default with which Apple has developers try a left-to-right application the other way.
  if ([[NSUserDefaults standardUserDefaults] boolForKey:@"NSForceRightToLeftWritingDirection"]) {
    return NSUserInterfaceLayoutDirectionRightToLeft;
  }
  NSArray *languages = [[NSBundle mainBundle] preferredLocalizations];
  NSString *language = [languages count] ? [languages objectAtIndex:0] : @"";
  return [NSLocale characterDirectionForLanguage:language] == NSLocaleLanguageDirectionRightToLeft
             ? NSUserInterfaceLayoutDirectionRightToLeft
             : NSUserInterfaceLayoutDirectionLeftToRight;
}

@end

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
