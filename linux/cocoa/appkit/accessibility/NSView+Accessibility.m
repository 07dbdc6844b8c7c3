#import <AppKit/AppKit.h>
#import <AppKit/NSViewAccessibility.h>

#import "runtime/AssociatedObjects.h"

static const char sElementKey, sLabelKey, sRoleKey, sSubroleKey, sTitleKey, sHelpKey,
    sRoleDescriptionKey, sIdentifierKey, sValueKey;

static NSString *TitleOf(NSView *view) {
  if (![view isKindOfClass:[NSButton class]]) {
    return nil;
  }
  NSString *title = [(NSButton *)view title];
  return [title length] ? title : nil;
}

@implementation NSView (PlatformAccessibility)

- (BOOL)isAccessibilityElement {
  NSNumber *element = objc_getAssociatedObject(self, &sElementKey);
  if (element) {
    return [element boolValue];
  }
  return [self isKindOfClass:[NSControl class]];
}

- (void)setAccessibilityElement:(BOOL)element {
  objc_setAssociatedObject(self, &sElementKey, [NSNumber numberWithBool:element],
                           OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

- (NSString *)accessibilityLabel {
  NSString *label = objc_getAssociatedObject(self, &sLabelKey);
  return label ? label : TitleOf(self);
}

- (void)setAccessibilityLabel:(NSString *)label {
  objc_setAssociatedObject(self, &sLabelKey, label, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

- (NSAccessibilityRole)accessibilityRole {
  NSString *role = objc_getAssociatedObject(self, &sRoleKey);
  if (role) {
    return role;
  }
  if ([self isKindOfClass:[NSButton class]]) {
    return NSAccessibilityButtonRole;
  }
  if ([self isKindOfClass:[NSImageView class]]) {
    return NSAccessibilityImageRole;
  }
  if ([self isKindOfClass:[NSTextField class]]) {
    return [(NSTextField *)self isEditable] ? NSAccessibilityTextFieldRole
                                            : NSAccessibilityStaticTextRole;
  }
  return NSAccessibilityGroupRole;
}

- (void)setAccessibilityRole:(NSAccessibilityRole)role {
  objc_setAssociatedObject(self, &sRoleKey, role, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

- (NSAccessibilitySubrole)accessibilitySubrole {
  return objc_getAssociatedObject(self, &sSubroleKey);
}

- (void)setAccessibilitySubrole:(NSAccessibilitySubrole)subrole {
  objc_setAssociatedObject(self, &sSubroleKey, subrole, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

- (NSString *)accessibilityTitle {
  NSString *title = objc_getAssociatedObject(self, &sTitleKey);
  return title ? title : TitleOf(self);
}

- (void)setAccessibilityTitle:(NSString *)title {
  objc_setAssociatedObject(self, &sTitleKey, title, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

- (NSString *)accessibilityHelp {
  return objc_getAssociatedObject(self, &sHelpKey);
}

- (void)setAccessibilityHelp:(NSString *)help {
  objc_setAssociatedObject(self, &sHelpKey, help, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

- (NSString *)accessibilityRoleDescription {
  return objc_getAssociatedObject(self, &sRoleDescriptionKey);
}

- (void)setAccessibilityRoleDescription:(NSString *)description {
  objc_setAssociatedObject(self, &sRoleDescriptionKey, description,
                           OBJC_ASSOCIATION_COPY_NONATOMIC);
}

- (NSString *)accessibilityIdentifier {
  return objc_getAssociatedObject(self, &sIdentifierKey);
}

- (void)setAccessibilityIdentifier:(NSString *)identifier {
  objc_setAssociatedObject(self, &sIdentifierKey, identifier, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

- (id)accessibilityValue {
  id value = objc_getAssociatedObject(self, &sValueKey);
  if (value) {
    return value;
  }
  return [self isKindOfClass:[NSTextField class]] ? [(NSTextField *)self stringValue] : nil;
}

- (void)setAccessibilityValue:(id)value {
  objc_setAssociatedObject(self, &sValueKey, value, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

@end
