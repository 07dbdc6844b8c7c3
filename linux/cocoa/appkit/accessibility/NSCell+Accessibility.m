#import <AppKit/AppKit.h>
#import <AppKit/NSViewAccessibility.h>

#import "runtime/AssociatedObjects.h"

static const char sElementKey, sLabelKey;

@implementation NSCell (PlatformAccessibility)

- (BOOL)isAccessibilityElement {
  NSNumber *element = objc_getAssociatedObject(self, &sElementKey);
  return element ? [element boolValue] : YES;
}

- (void)setAccessibilityElement:(BOOL)element {
  objc_setAssociatedObject(self, &sElementKey, [NSNumber numberWithBool:element],
                           OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

- (NSString *)accessibilityLabel {
  NSString *label = objc_getAssociatedObject(self, &sLabelKey);
  if (label || ![self isKindOfClass:[NSButtonCell class]]) {
    return label;
  }
  NSString *title = [(NSButtonCell *)self title];
  return [title length] ? title : nil;
}

- (void)setAccessibilityLabel:(NSString *)label {
  objc_setAssociatedObject(self, &sLabelKey, label, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

@end
