#import <AppKit/AppKit.h>
#import <AppKit/NSViewAccessibility.h>

#import "runtime/AssociatedObjects.h"

static const char sTitleKey, sSubroleKey;

@implementation NSWindow (PlatformAccessibility)

- (NSString *)accessibilityTitle {
  NSString *title = objc_getAssociatedObject(self, &sTitleKey);
  return title ? title : [self title];
}

- (void)setAccessibilityTitle:(NSString *)title {
  objc_setAssociatedObject(self, &sTitleKey, title, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

- (NSAccessibilitySubrole)accessibilitySubrole {
  return objc_getAssociatedObject(self, &sSubroleKey);
}

- (void)setAccessibilitySubrole:(NSAccessibilitySubrole)subrole {
  objc_setAssociatedObject(self, &sSubroleKey, subrole, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

@end
