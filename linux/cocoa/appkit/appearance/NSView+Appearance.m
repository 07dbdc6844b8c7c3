#import <AppKit/NSAppearanceCustomization.h>

#import "appearance/AppearanceChange.h"

@implementation NSView (PlatformAppearance)

- (NSAppearance *)appearance {
  return PlatformOwnAppearance(self);
}

- (void)setAppearance:(NSAppearance *)appearance {
  PlatformSetOwnAppearance(self, appearance);
}

- (NSAppearance *)effectiveAppearance {
  NSAppearance *own = [self appearance];
  if (own) {
    return own;
  }
  if ([self superview]) {
    return [[self superview] effectiveAppearance];
  }
  if ([self window]) {
    return [[self window] effectiveAppearance];
  }
  return [[NSApplication sharedApplication] effectiveAppearance];
}

@end
