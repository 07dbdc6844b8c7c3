// Key equivalents of buttons. GNUstep's own matching takes Caps Lock for a part of the letter and
// does not know that the keypad's Enter is as good as Return.

#import <AppKit/AppKit.h>

/// What a key equivalent is compared with: letters are large with Shift and small without.
static NSString *KeyOfEvent(NSEvent *event) {
  NSString *key = [event charactersIgnoringModifiers];
  if ([key isEqualToString:@"\x03"]) {
    return @"\r";
  }
  if ([event modifierFlags] & NSAlphaShiftKeyMask) {
    return [event modifierFlags] & NSShiftKeyMask ? [key uppercaseString] : [key lowercaseString];
  }
  return key;
}

/// The modifiers that have to be as the key equivalent's mask says. With a letter, Shift shows in
/// the letter itself.
static NSUInteger DecisiveModifiers(NSString *key, NSEvent *event) {
  NSUInteger modifiers = NSCommandKeyMask | NSAlternateKeyMask | NSControlKeyMask;
  if (([event modifierFlags] & NSFunctionKeyMask) ||
      [[NSCharacterSet controlCharacterSet] characterIsMember:[key characterAtIndex:0]]) {
    modifiers |= NSShiftKeyMask;
  }
  return modifiers;
}

@implementation NSButton (PlatformKeyEquivalent)

- (BOOL)performKeyEquivalent:(NSEvent *)event {
  NSString *key = [self keyEquivalent];
  if ([key length] == 0 || ![key isEqualToString:KeyOfEvent(event)]) {
    return NO;
  }
  NSUInteger decisive = DecisiveModifiers(key, event);
  if (([event modifierFlags] & decisive) != ([self keyEquivalentModifierMask] & decisive)) {
    return NO;
  }

  NSWindow *modal = [NSApp modalWindow];
  BOOL blocked = modal != nil && modal != [self window] && ![[self window] worksWhenModal];
  if (blocked || ![self isEnabled] || [self isHiddenOrHasHiddenAncestor]) {
    return NO;
  }
  [self performClick:self];
  return YES;
}

@end
