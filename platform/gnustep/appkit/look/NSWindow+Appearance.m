#import <AppKit/NSAppearanceCustomization.h>

#import "AppearanceChange.h"

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

- (void)addObserver:(NSObject *)observer
         forKeyPath:(NSString *)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(void *)context {
  PlatformNoteAppearanceObserver(self, keyPath);
  [super addObserver:observer forKeyPath:keyPath options:options context:context];
}

@end
