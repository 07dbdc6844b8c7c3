#import <AppKit/NSAppearanceCustomization.h>

#import "AppearanceChange.h"

// Taking the place of the toolkit's methods is the purpose.
#pragma clang diagnostic ignored "-Wobjc-protocol-method-implementation"

@implementation NSView (PlatformAppearance)

- (NSAppearance *)appearance {
  return PlatformOwnAppearance(self);
}

- (void)setAppearance:(NSAppearance *)appearance {
  PlatformSetOwnAppearance(self, appearance);
}

- (NSAppearance *)effectiveAppearance {
  NSAppearance *own = [self appearance];
  if (own) return own;
  if ([self superview]) return [[self superview] effectiveAppearance];
  if ([self window]) return [[self window] effectiveAppearance];
  return [[NSApplication sharedApplication] effectiveAppearance];
}

- (void)addObserver:(NSObject *)observer
         forKeyPath:(NSString *)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(void *)context {
  PlatformNoteAppearanceObserver(self, keyPath);
  [super addObserver:observer forKeyPath:keyPath options:options context:context];
}

@end
