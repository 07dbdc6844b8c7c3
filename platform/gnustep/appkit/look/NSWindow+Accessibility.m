#import <AppKit/AppKit.h>
#import <AppKit/NSViewAccessibility.h>

#import "AttachedState.h"

static NSString *const kTitle = @"accessibility.title";
static NSString *const kSubrole = @"accessibility.subrole";

@implementation NSWindow (PlatformAccessibility)

- (NSString *)accessibilityTitle {
  NSString *title = PlatformAttachedState(self, kTitle);
  return title ? title : [self title];
}

- (void)setAccessibilityTitle:(NSString *)title {
  PlatformSetAttachedState(self, kTitle, [[title copy] autorelease]);
}

- (NSAccessibilitySubrole)accessibilitySubrole {
  return PlatformAttachedState(self, kSubrole);
}

- (void)setAccessibilitySubrole:(NSAccessibilitySubrole)subrole {
  PlatformSetAttachedState(self, kSubrole, [[subrole copy] autorelease]);
}

@end
