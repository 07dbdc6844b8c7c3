#import <AppKit/AppKit.h>
#import <AppKit/NSViewAccessibility.h>

#import "AttachedState.h"

static NSString *const kElement = @"accessibility.element";
static NSString *const kLabel = @"accessibility.label";
static NSString *const kRole = @"accessibility.role";
static NSString *const kSubrole = @"accessibility.subrole";
static NSString *const kTitle = @"accessibility.title";
static NSString *const kHelp = @"accessibility.help";
static NSString *const kRoleDescription = @"accessibility.roleDescription";
static NSString *const kIdentifier = @"accessibility.identifier";
static NSString *const kValue = @"accessibility.value";

static id Set(NSView *view, NSString *key) { return PlatformAttachedState(view, key); }

static NSString *TitleOf(NSView *view) {
  if (![view isKindOfClass:[NSButton class]]) return nil;
  NSString *title = [(NSButton *)view title];
  return [title length] ? title : nil;
}

@implementation NSView (PlatformAccessibility)

- (BOOL)isAccessibilityElement {
  NSNumber *element = Set(self, kElement);
  if (element) return [element boolValue];
  return [self isKindOfClass:[NSControl class]];
}

- (void)setAccessibilityElement:(BOOL)element {
  PlatformSetAttachedState(self, kElement, [NSNumber numberWithBool:element]);
}

- (NSString *)accessibilityLabel {
  NSString *label = Set(self, kLabel);
  return label ? label : TitleOf(self);
}

- (void)setAccessibilityLabel:(NSString *)label {
  PlatformSetAttachedState(self, kLabel, [[label copy] autorelease]);
}

- (NSAccessibilityRole)accessibilityRole {
  NSString *role = Set(self, kRole);
  if (role) return role;
  if ([self isKindOfClass:[NSButton class]]) return NSAccessibilityButtonRole;
  if ([self isKindOfClass:[NSImageView class]]) return NSAccessibilityImageRole;
  if ([self isKindOfClass:[NSTextField class]])
    return [(NSTextField *)self isEditable] ? NSAccessibilityTextFieldRole
                                            : NSAccessibilityStaticTextRole;
  return NSAccessibilityGroupRole;
}

- (void)setAccessibilityRole:(NSAccessibilityRole)role {
  PlatformSetAttachedState(self, kRole, [[role copy] autorelease]);
}

- (NSAccessibilitySubrole)accessibilitySubrole {
  return Set(self, kSubrole);
}

- (void)setAccessibilitySubrole:(NSAccessibilitySubrole)subrole {
  PlatformSetAttachedState(self, kSubrole, [[subrole copy] autorelease]);
}

- (NSString *)accessibilityTitle {
  NSString *title = Set(self, kTitle);
  return title ? title : TitleOf(self);
}

- (void)setAccessibilityTitle:(NSString *)title {
  PlatformSetAttachedState(self, kTitle, [[title copy] autorelease]);
}

- (NSString *)accessibilityHelp {
  return Set(self, kHelp);
}

- (void)setAccessibilityHelp:(NSString *)help {
  PlatformSetAttachedState(self, kHelp, [[help copy] autorelease]);
}

- (NSString *)accessibilityRoleDescription {
  return Set(self, kRoleDescription);
}

- (void)setAccessibilityRoleDescription:(NSString *)description {
  PlatformSetAttachedState(self, kRoleDescription, [[description copy] autorelease]);
}

- (NSString *)accessibilityIdentifier {
  return Set(self, kIdentifier);
}

- (void)setAccessibilityIdentifier:(NSString *)identifier {
  PlatformSetAttachedState(self, kIdentifier, [[identifier copy] autorelease]);
}

- (id)accessibilityValue {
  id value = Set(self, kValue);
  if (value) return value;
  return [self isKindOfClass:[NSTextField class]] ? [(NSTextField *)self stringValue] : nil;
}

- (void)setAccessibilityValue:(id)value {
  PlatformSetAttachedState(self, kValue, value);
}

@end
