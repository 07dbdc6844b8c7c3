// Unhandled key events. GNUstep tries them as key equivalents once more, as if
// Command were held: a plain "w" would close what Command-W closes.

#import <AppKit/AppKit.h>

@implementation NSWindow (PlatformKeyDown)

- (void)keyDown:(NSEvent *)event {
  NSString *characters = [event characters];
  if ([characters length] == 0) {
    return;  // a modifier, or the first part of an accented letter
  }
  switch ([characters characterAtIndex:0]) {
    case NSBackTabCharacter:
      [self selectPreviousKeyView:self];
      break;
    case NSTabCharacter:
      if ([event modifierFlags] & NSShiftKeyMask) {
        [self selectPreviousKeyView:self];
      } else {
        [self selectNextKeyView:self];
      }
      break;
    case '\x1b':
      if ([NSApp modalWindow] == self) {
        [NSApp abortModal];  // raises, and so does not return
      }
      break;
    default:
      [super keyDown:event];
  }
}

@end
