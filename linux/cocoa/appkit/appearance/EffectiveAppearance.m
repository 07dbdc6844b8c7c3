// The appearances of application, windows and views: the same, but for where they inherit from.

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

@implementation NSWindow (PlatformAppearance)

- (NSAppearance *)appearance {
  return PlatformOwnAppearance(self);
}

- (void)setAppearance:(NSAppearance *)appearance {
  PlatformSetOwnAppearance(self, appearance);
}

- (NSAppearance *)effectiveAppearance {
  NSAppearance *own = [self appearance];
  return own ? own : [[NSApplication sharedApplication] effectiveAppearance];
}

@end

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
  id parent = [self superview] ? (id)[self superview] : [self window];
  return [parent ? parent : [NSApplication sharedApplication] effectiveAppearance];
}

@end
