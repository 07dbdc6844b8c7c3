#include <CocoaTesting/LookTest.h>

using Accessibility = look::LookTest;

template <class View>
static View *Made() {
  return [[[View alloc] initWithFrame:NSMakeRect(0, 0, 20, 20)] autorelease];
}

TEST_F(Accessibility, KindOfViewGivesTheRole) {
  EXPECT_EQ([Made<NSButton>() accessibilityRole], NSAccessibilityButtonRole);
  EXPECT_EQ([Made<NSImageView>() accessibilityRole], NSAccessibilityImageRole);
  NSTextField *field = Made<NSTextField>();
  EXPECT_EQ([field accessibilityRole], NSAccessibilityTextFieldRole);
  [field setEditable:NO];
  EXPECT_EQ([field accessibilityRole], NSAccessibilityStaticTextRole);
}

TEST_F(Accessibility, ButtonIsNamedByItsTitle) {
  NSButton *button = Made<NSButton>();
  [button setTitle:@"No, Thanks"];
  EXPECT_TRUE([[button accessibilityLabel] isEqual:@"No, Thanks"]);
  [button setAccessibilityLabel:@"Close"];
  EXPECT_TRUE([[button accessibilityLabel] isEqual:@"Close"]);
  [button setAccessibilityLabel:nil];
  EXPECT_TRUE([[button accessibilityLabel] isEqual:@"No, Thanks"]);
}

TEST_F(Accessibility, ControlsAreElementsAndPlainViewsAreNot) {
  EXPECT_TRUE([Made<NSButton>() isAccessibilityElement]);
  EXPECT_FALSE([Made<NSView>() isAccessibilityElement]);
  NSImageView *picture = Made<NSImageView>();
  [picture setAccessibilityElement:NO];
  EXPECT_FALSE([picture isAccessibilityElement]);
}

TEST_F(Accessibility, WhatIsSetIsGivenBack) {
  NSView *view = Made<NSView>();
  [view setAccessibilityRole:NSAccessibilityImageRole];
  [view setAccessibilitySubrole:@"AXCloseButton"];
  [view setAccessibilityTitle:@"title"];
  [view setAccessibilityHelp:@"help"];
  [view setAccessibilityRoleDescription:@"mark"];
  [view setAccessibilityIdentifier:@"close"];
  [view setAccessibilityValue:@3];
  EXPECT_TRUE([[view accessibilityRole] isEqual:NSAccessibilityImageRole]);
  EXPECT_TRUE([[view accessibilitySubrole] isEqual:@"AXCloseButton"]);
  EXPECT_TRUE([[view accessibilityTitle] isEqual:@"title"]);
  EXPECT_TRUE([[view accessibilityHelp] isEqual:@"help"]);
  EXPECT_TRUE([[view accessibilityRoleDescription] isEqual:@"mark"]);
  EXPECT_TRUE([[view accessibilityIdentifier] isEqual:@"close"]);
  EXPECT_TRUE([[view accessibilityValue] isEqual:@3]);
}

TEST_F(Accessibility, TextFieldsValueIsItsText) {
  NSTextField *field = Made<NSTextField>();
  [field setStringValue:@"Let us stay in touch"];
  EXPECT_TRUE([[field accessibilityValue] isEqual:@"Let us stay in touch"]);
}

TEST_F(Accessibility, CellIsAnElementNamedByItsTitleUntilItIsToldOtherwise) {
  NSButton *button = Made<NSButton>();
  [button setTitle:@"No, Thanks"];
  NSCell *cell = [button cell];
  EXPECT_TRUE([cell isAccessibilityElement]);
  EXPECT_TRUE([[cell accessibilityLabel] isEqual:@"No, Thanks"]);
  [cell setAccessibilityLabel:@"Close"];
  [cell setAccessibilityElement:NO];
  EXPECT_TRUE([[cell accessibilityLabel] isEqual:@"Close"]);
  EXPECT_FALSE([cell isAccessibilityElement]);
}

TEST_F(Accessibility, CellAtTheAddressOfAnOlderOneStartsAnew) {
  for (int i = 0; i < 50; i++) {
    NSButtonCell *cell = [[NSButtonCell alloc] initTextCell:@""];
    EXPECT_EQ([cell accessibilityLabel], nil);
    EXPECT_TRUE([cell isAccessibilityElement]);
    [cell setAccessibilityLabel:@"Close"];
    [cell setAccessibilityElement:NO];
    [cell release];
  }
}

TEST_F(Accessibility, WindowIsAnnouncedByItsTitleUntilAnotherIsSet) {
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(100, 100) white:1];
  [window setTitle:@"Document"];
  EXPECT_TRUE([[window accessibilityTitle] isEqual:@"Document"]);
  [window setAccessibilityTitle:@"A question"];
  EXPECT_TRUE([[window accessibilityTitle] isEqual:@"A question"]);
  EXPECT_TRUE([[window title] isEqual:@"Document"]);
  EXPECT_EQ([window accessibilitySubrole], nil);
  [window setAccessibilitySubrole:NSAccessibilityDialogSubrole];
  EXPECT_EQ([window accessibilitySubrole], NSAccessibilityDialogSubrole);
  [window close];
}
