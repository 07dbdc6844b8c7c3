#import <AppKit/NSAppearanceCustomization.h>

#import "appearance/AppearanceChange.h"

@implementation NSApplication (PlatformAppearance)

- (NSAppearance *)appearance {
  return PlatformOwnAppearance(self);
}

- (void)setAppearance:(NSAppearance *)appearance {
  PlatformSetOwnAppearance(self, appearance);
}

- (NSAppearance *)effectiveAppearance {
  NSAppearance *own = [self appearance];
  return own ? own : [NSAppearance appearanceNamed:NSAppearanceNameAqua];
}

@end
