#import <AppKit/NSAppearanceCustomization.h>

#import "AppearanceChange.h"

// Taking the place of the toolkit's methods is the purpose.
#pragma clang diagnostic ignored "-Wobjc-protocol-method-implementation"

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

- (void)addObserver:(NSObject *)observer
         forKeyPath:(NSString *)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(void *)context {
  PlatformNoteAppearanceObserver(self, keyPath);
  [super addObserver:observer forKeyPath:keyPath options:options context:context];
}

@end
