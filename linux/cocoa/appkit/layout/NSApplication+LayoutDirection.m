#import <AppKit/AppKit.h>

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
