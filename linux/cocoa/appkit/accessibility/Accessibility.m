// What assistive software is told of views, cells and windows: kept and given back.

#import <AppKit/AppKit.h>
#import <AppKit/NSViewAccessibility.h>

#import "runtime/AssociatedObjects.h"

static const char sElementKey, sLabelKey, sRoleKey, sSubroleKey, sTitleKey, sHelpKey,
    sRoleDescriptionKey, sIdentifierKey, sValueKey;

static void Keep(id owner, const char *key, id value) {
  objc_setAssociatedObject(owner, key, value, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

static void KeepCopy(id owner, const char *key, NSString *text) {
  objc_setAssociatedObject(owner, key, text, OBJC_ASSOCIATION_COPY_NONATOMIC);
}

/// The title of a button or its cell, nil where it is empty, and for others.
static NSString *TitleOf(id owner) {
  if (![owner isKindOfClass:[NSButton class]] && ![owner isKindOfClass:[NSButtonCell class]]) {
    return nil;
  }
  NSString *title = [owner title];
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
  Keep(self, &sElementKey, [NSNumber numberWithBool:element]);
}

- (NSString *)accessibilityLabel {
  NSString *label = objc_getAssociatedObject(self, &sLabelKey);
  return label ? label : TitleOf(self);
}

- (void)setAccessibilityLabel:(NSString *)label {
  KeepCopy(self, &sLabelKey, label);
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
  KeepCopy(self, &sRoleKey, role);
}

- (NSAccessibilitySubrole)accessibilitySubrole {
  return objc_getAssociatedObject(self, &sSubroleKey);
}

- (void)setAccessibilitySubrole:(NSAccessibilitySubrole)subrole {
  KeepCopy(self, &sSubroleKey, subrole);
}

- (NSString *)accessibilityTitle {
  NSString *title = objc_getAssociatedObject(self, &sTitleKey);
  return title ? title : TitleOf(self);
}

- (void)setAccessibilityTitle:(NSString *)title {
  KeepCopy(self, &sTitleKey, title);
}

- (NSString *)accessibilityHelp {
  return objc_getAssociatedObject(self, &sHelpKey);
}

- (void)setAccessibilityHelp:(NSString *)help {
  KeepCopy(self, &sHelpKey, help);
}

- (NSString *)accessibilityRoleDescription {
  return objc_getAssociatedObject(self, &sRoleDescriptionKey);
}

- (void)setAccessibilityRoleDescription:(NSString *)description {
  KeepCopy(self, &sRoleDescriptionKey, description);
}

- (NSString *)accessibilityIdentifier {
  return objc_getAssociatedObject(self, &sIdentifierKey);
}

- (void)setAccessibilityIdentifier:(NSString *)identifier {
  KeepCopy(self, &sIdentifierKey, identifier);
}

- (id)accessibilityValue {
  id value = objc_getAssociatedObject(self, &sValueKey);
  if (value) {
    return value;
  }
  return [self isKindOfClass:[NSTextField class]] ? [(NSTextField *)self stringValue] : nil;
}

- (void)setAccessibilityValue:(id)value {
  Keep(self, &sValueKey, value);
}

@end

@implementation NSCell (PlatformAccessibility)

- (BOOL)isAccessibilityElement {
  NSNumber *element = objc_getAssociatedObject(self, &sElementKey);
  return element ? [element boolValue] : YES;
}

- (void)setAccessibilityElement:(BOOL)element {
  Keep(self, &sElementKey, [NSNumber numberWithBool:element]);
}

- (NSString *)accessibilityLabel {
  NSString *label = objc_getAssociatedObject(self, &sLabelKey);
  return label ? label : TitleOf(self);
}

- (void)setAccessibilityLabel:(NSString *)label {
  KeepCopy(self, &sLabelKey, label);
}

@end

@implementation NSWindow (PlatformAccessibility)

- (NSString *)accessibilityTitle {
  NSString *title = objc_getAssociatedObject(self, &sTitleKey);
  return title ? title : [self title];
}

- (void)setAccessibilityTitle:(NSString *)title {
  KeepCopy(self, &sTitleKey, title);
}

- (NSAccessibilitySubrole)accessibilitySubrole {
  return objc_getAssociatedObject(self, &sSubroleKey);
}

- (void)setAccessibilitySubrole:(NSAccessibilitySubrole)subrole {
  KeepCopy(self, &sSubroleKey, subrole);
}

@end
