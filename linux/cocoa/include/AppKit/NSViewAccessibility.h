// What views, cells and windows tell a screen reader.

#ifndef PLATFORM_APPKIT_NSVIEWACCESSIBILITY_H
#define PLATFORM_APPKIT_NSVIEWACCESSIBILITY_H

#import <AppKit/NSAccessibility.h>
#import <AppKit/NSCell.h>
#import <AppKit/NSView.h>
#import <AppKit/NSWindow.h>

NS_ASSUME_NONNULL_BEGIN

typedef NSString *NSAccessibilityRole;
typedef NSString *NSAccessibilitySubrole;

/// A value that was set is given back; until then role, label and whether the view is an element
/// come from the kind of view: a button is a button named by its title, a text field that cannot be
/// edited is static text, an image view an image, and a plain view is no element.
/// Nothing on this system reads them yet: the toolkit has no bridge to a screen reader.
@interface NSView (PlatformAccessibility)

- (BOOL)isAccessibilityElement;
- (void)setAccessibilityElement:(BOOL)element;

- (nullable NSString *)accessibilityLabel;
- (void)setAccessibilityLabel:(nullable NSString *)label;

- (nullable NSAccessibilityRole)accessibilityRole;
- (void)setAccessibilityRole:(nullable NSAccessibilityRole)role;

- (nullable NSAccessibilitySubrole)accessibilitySubrole;
- (void)setAccessibilitySubrole:(nullable NSAccessibilitySubrole)subrole;

- (nullable NSString *)accessibilityTitle;
- (void)setAccessibilityTitle:(nullable NSString *)title;

- (nullable NSString *)accessibilityHelp;
- (void)setAccessibilityHelp:(nullable NSString *)help;

- (nullable NSString *)accessibilityRoleDescription;
- (void)setAccessibilityRoleDescription:(nullable NSString *)description;

- (nullable NSString *)accessibilityIdentifier;
- (void)setAccessibilityIdentifier:(nullable NSString *)identifier;

- (nullable id)accessibilityValue;
- (void)setAccessibilityValue:(nullable id)value;

@end

/// A cell is an element until it is told not to be; a button's is named by its title.
@interface NSCell (PlatformAccessibility)

- (BOOL)isAccessibilityElement;
- (void)setAccessibilityElement:(BOOL)element;

- (nullable NSString *)accessibilityLabel;
- (void)setAccessibilityLabel:(nullable NSString *)label;

@end

/// A window is announced by its title until another is set.
@interface NSWindow (PlatformAccessibility)

- (nullable NSString *)accessibilityTitle;
- (void)setAccessibilityTitle:(nullable NSString *)title;

- (nullable NSAccessibilitySubrole)accessibilitySubrole;
- (void)setAccessibilitySubrole:(nullable NSAccessibilitySubrole)subrole;

@end

NS_ASSUME_NONNULL_END

#endif
