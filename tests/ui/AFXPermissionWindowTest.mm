//
// The consent window from the inside: its layout, texts and answers. Keys and clicks of a real
// display are tested from the outside, with the whole application.
//

#import <AppKit/AppKit.h>
#import <CocoaTesting/PlatformVersions.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "alignment.h"
#include "event_loop.h"
#import "ui/AFXPermissionWindow.h"
#import "ui/AFXPermissionWindowController.h"

/// A controller of an application with a name of the test's choice.
@interface NamedPermissionWindowController : AFXPermissionWindowController
@end

static NSString *sAppName;

@interface AFXPermissionWindowController (Private)
- (NSString *)_appName;
@end

@implementation NamedPermissionWindowController
- (NSString *)_appName {
  return sAppName;
}
@end

/// What its controller has begun (+) and ended (-) to observe of a window. Others may observe it
/// too, the toolkit first of all.
static std::vector<std::string> sObservations;

@implementation AFXPermissionWindow (Observed)

- (void)addObserver:(NSObject *)observer
         forKeyPath:(NSString *)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(void *)context {
  if ([observer isKindOfClass:AFXPermissionWindowController.class]) {
    sObservations.push_back(std::string("+") + keyPath.UTF8String);
  }
  [super addObserver:observer forKeyPath:keyPath options:options context:context];
}

- (void)removeObserver:(NSObject *)observer forKeyPath:(NSString *)keyPath {
  if ([observer isKindOfClass:AFXPermissionWindowController.class]) {
    sObservations.push_back(std::string("-") + keyPath.UTF8String);
  }
  [super removeObserver:observer forKeyPath:keyPath];
}

@end

namespace {

struct Answer {
  AFXConsentChoice choice;
  NSString *email;
};

class PermissionWindow : public testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    sAppName = @"Editor";
  }

  void TearDown() override {
    close();
    [pool_ release];
  }

  void close() {
    [controller_.window orderOut:nil];
    [controller_ release];
    controller_ = nil;
  }

  /// Makes the controller and brings its window up, laid out.
  AFXPermissionWindowController *open(NSString *email = @"jane@example.com") {
    std::vector<Answer> *answers = &answers_;
    controller_ = [[NamedPermissionWindowController alloc]
        initWithUserEmail:email
        completionHandler:^(AFXConsentChoice choice, NSString *address) {
          answers->push_back({choice, [[address copy] autorelease]});
        }];
    [controller_ showWindow:nil];
    [controller_.window.contentView layoutSubtreeIfNeeded];
    return controller_;
  }

  /// Whether the window is in the middle from side to side, at once or before long: a window
  /// manager may tell late where a window has been, and what it tells last holds.
  bool comesToStandInTheMiddle() const {
    NSWindow *window = controller_.window;
    return ComesTrue(
        [=] { return std::abs(NSMidX(window.frame) - NSMidX(window.screen.visibleFrame)) <= 1; });
  }

  /// The subview of the content view that is neither a control nor the images' container: 1 point
  /// wide.
  NSView *spacer() const {
    for (NSView *view in [controller_.window.contentView subviews]) {
      if (![view isKindOfClass:NSControl.class] && view.subviews.count == 0) {
        return view;
      }
    }
    return nil;
  }

  NSButton *commandWButton() const {
    for (NSView *view in [controller_.window.contentView subviews]) {
      if ([view isKindOfClass:NSButton.class] &&
          [[(NSButton *)view keyEquivalent] isEqualToString:@"w"]) {
        return (NSButton *)view;
      }
    }
    return nil;
  }

  AFXPermissionWindowController *controller_ = nil;
  std::vector<Answer> answers_;

 private:
  NSAutoreleasePool *pool_ = nil;
};

void ExpectRect(NSRect rect, CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
  EXPECT_EQ(NSMinX(rect), x);
  EXPECT_EQ(NSMinY(rect), y);
  EXPECT_EQ(NSWidth(rect), width);
  EXPECT_EQ(NSHeight(rect), height);
}

}  // namespace

#pragma mark - Window

TEST_F(PermissionWindow, IsBorderlessAndCanStillBecomeKeyAndMain) {
  NSWindow *window = open().window;
  EXPECT_TRUE([window isKindOfClass:AFXPermissionWindow.class]);
  EXPECT_EQ(window.styleMask, NSWindowStyleMaskBorderless);
  EXPECT_TRUE(window.canBecomeKeyWindow);
  EXPECT_TRUE(window.canBecomeMainWindow);
  EXPECT_TRUE([window isMovableByWindowBackground]);
  EXPECT_TRUE(window.hasShadow);
  EXPECT_FALSE([window isOpaque]);
  EXPECT_EQ(window.level, NSNormalWindowLevel);
  EXPECT_EQ([window.contentView layer].cornerRadius, 5.0);
}

TEST_F(PermissionWindow, IsFiveHundredFiftySixByThreeHundredFiftyFivePoints) {
  NSWindow *window = open().window;
  EXPECT_EQ(NSWidth(window.frame), 556.0);
  EXPECT_EQ(NSHeight(window.frame), 355.0);
  ExpectRect(AlignmentOf(window.contentView), 0, 0, 556, 355);
}

TEST_F(PermissionWindow, StandsInTheMiddleOfTheScreen) {
  NSWindow *window = open().window;
  const NSRect screen = window.screen.visibleFrame;
  EXPECT_NEAR(NSMidX(window.frame), NSMidX(screen), 1.0);
  EXPECT_GE(NSMidY(window.frame), NSMidY(screen) - 1.0);
}

#pragma mark - Layout
// Worked out by hand from the window's 556 × 355 points; y counts upwards.

TEST_F(PermissionWindow, HangsTheImagesThirtyFivePointsFromTheTopInTheMiddle) {
  open();
  ExpectRect(AlignmentOf(controller_.iconView.superview), 162, 172, 232, 148);
}

TEST_F(PermissionWindow, HangsTheEnvelopeFromTheContainersTopRightCorner) {
  open();
  // One point taller than its container, over whose bottom edge it stands.
  ExpectRect(AlignmentOf(controller_.envelopeView), 180, 171, 214, 149);
}

TEST_F(PermissionWindow, StandsTheIconInTheContainersBottomLeftCornerOverTheEnvelope) {
  open();
  ExpectRect(AlignmentOf(controller_.iconView), 162, 172, 110, 110);
  NSArray *images = controller_.iconView.superview.subviews;
  EXPECT_LT([images indexOfObject:controller_.envelopeView],
            [images indexOfObject:controller_.iconView]);
}

TEST_F(PermissionWindow, HasTheCloseMarkInTheTopLeftCorner) {
  open();
  ExpectRect(AlignmentOf(controller_.closeButton), 10, 335, 12, 12);
}

TEST_F(PermissionWindow, GivesTheCommandWButtonNoSize) {
  open();
  NSButton *button = commandWButton();
  ASSERT_NE(button, nil);
  ExpectRect(AlignmentOf(button), 0, 355, 0, 0);
  EXPECT_TRUE(button.refusesFirstResponder);
  EXPECT_EQ(button.keyEquivalentModifierMask, 1048576u);
}

TEST_F(PermissionWindow, StacksTheTextsBelowTheImages) {
  open();
  const NSRect title = AlignmentOf(controller_.titleField);
  const NSRect description = AlignmentOf(controller_.descriptionField);
  const NSRect buttons = AlignmentOf(spacer());
  const NSRect info = AlignmentOf(controller_.informativeField);
  EXPECT_EQ(NSMaxY(title), 172.0 - 13.0);
  EXPECT_EQ(NSMaxY(description), NSMinY(title) - 6.0);
  EXPECT_EQ(NSMaxY(buttons), NSMinY(description));
  EXPECT_EQ(NSHeight(buttons), 64.0);
  EXPECT_EQ(NSMaxY(info), NSMinY(buttons) - 2.0);
  EXPECT_GE(NSMinY(info), 8.0);
  for (const NSRect &text : {title, description, info}) {
    EXPECT_EQ(NSMinX(text), 8.0);
    EXPECT_EQ(NSWidth(text), 540.0);
    EXPECT_GT(NSHeight(text), 0.0);
  }
}

TEST_F(PermissionWindow, PutsEquallyWideButtonsSixPointsToEitherSideOfTheMiddle) {
  open();
  const NSRect middle = AlignmentOf(spacer());
  const NSRect cancel = AlignmentOf(controller_.cancelButton);
  const NSRect ok = AlignmentOf(controller_.okButton);
  EXPECT_EQ(NSWidth(middle), 1.0);
  EXPECT_NEAR(NSMidX(middle), 278.0, 0.5);
  EXPECT_EQ(NSMaxX(cancel), NSMinX(middle) - 6.0);
  EXPECT_EQ(NSMinX(ok), NSMaxX(middle) + 6.0);
  EXPECT_EQ(NSWidth(cancel), NSWidth(ok));
  EXPECT_GE(NSWidth(cancel), 110.0);
  EXPECT_NEAR(NSMidY(cancel), NSMidY(middle), 0.5);
  EXPECT_EQ(NSMinY(cancel), NSMinY(ok));
}

TEST_F(PermissionWindow, KeepsTheButtonsEquallyWideForAnyTitle) {
  open();
  controller_.okButton.title = @"Ja, ich möchte gern auf dem Laufenden bleiben";
  [controller_.window.contentView layoutSubtreeIfNeeded];
  const CGFloat width = NSWidth(AlignmentOf(controller_.okButton));
  EXPECT_GT(width, 200.0);
  EXPECT_EQ(NSWidth(AlignmentOf(controller_.cancelButton)), width);

  controller_.okButton.title = @"Ja";
  [controller_.window.contentView layoutSubtreeIfNeeded];
  EXPECT_EQ(NSWidth(AlignmentOf(controller_.okButton)), 110.0);
  EXPECT_EQ(NSWidth(AlignmentOf(controller_.cancelButton)), 110.0);
}

TEST_F(PermissionWindow, WrapsALongDescriptionAndTakesTheRoomFromTheRowOfButtons) {
  open();
  const CGFloat oneLine = NSHeight(AlignmentOf(controller_.descriptionField));
  const NSRect images = AlignmentOf(controller_.iconView.superview);
  close();

  sAppName = @"The Extraordinarily Long-Winded and Thoroughly Comprehensive Document Editor of "
             @"the Year";
  open();
  const NSRect description = AlignmentOf(controller_.descriptionField);
  const NSRect buttons = AlignmentOf(spacer());
  const NSRect info = AlignmentOf(controller_.informativeField);
  EXPECT_EQ(NSWidth(description), 540.0);
  EXPECT_GE(NSHeight(description), 2.0 * oneLine - 4.0);
  EXPECT_TRUE(NSEqualRects(AlignmentOf(controller_.iconView.superview), images));
  EXPECT_LT(NSHeight(buttons), 64.0);
  EXPECT_GT(NSHeight(buttons), 30.0);
  EXPECT_EQ(NSMaxY(info), NSMinY(buttons) - 2.0);
  EXPECT_GE(NSMinY(info), 8.0);
  EXPECT_EQ(NSHeight(controller_.window.frame), 355.0);
}

TEST_F(PermissionWindow, KeepsTheFooterOfALongAddressInsideTheWindow) {
  open();
  const NSRect images = AlignmentOf(controller_.iconView.superview);
  close();

  open(@"maximiliane.hohenzollern-sigmaringen+newsletters@post.department.example.com");
  const NSRect info = AlignmentOf(controller_.informativeField);
  EXPECT_EQ(NSWidth(info), 540.0);
  EXPECT_GE(NSMinY(info), 8.0);
  EXPECT_TRUE(NSEqualRects(AlignmentOf(controller_.iconView.superview), images));
  EXPECT_EQ(NSHeight(controller_.window.frame), 355.0);
}

TEST_F(PermissionWindow, WrapsItsTextsInsteadOfGrowing) {
  for (NSString *name in @[ @"titleField", @"descriptionField", @"informativeField" ]) {
    SCOPED_TRACE(name.UTF8String);
    open();
    NSWindow *window = controller_.window;
    NSTextField *field = [controller_ valueForKey:name];
    const NSRect before = window.frame;
    const CGFloat oneLine = NSHeight(field.frame);
    const CGFloat width = field.preferredMaxLayoutWidth;
    field.preferredMaxLayoutWidth = 0.0;
    while (field.intrinsicContentSize.width < 600.0) {
      field.stringValue = [field.stringValue stringByAppendingString:@" again"];
    }
    field.preferredMaxLayoutWidth = width;
    [window layoutIfNeeded];
    EXPECT_TRUE(NSEqualRects(window.frame, before));
    EXPECT_GE(NSHeight(field.frame), 2.0 * oneLine - 8.0);

    // Without a width to wrap at, it wants one line, and more than the window wants to keep its
    // size.
    field.preferredMaxLayoutWidth = 0.0;
    [window layoutIfNeeded];
    EXPECT_TRUE(ComesTrue(
        [=] { return NSWidth(window.frame) == field.intrinsicContentSize.width + 16.0; }));
    EXPECT_EQ(NSMinX(window.frame), NSMinX(before));
    EXPECT_EQ(NSMaxY(window.frame), NSMaxY(before));
    close();
  }
}

#pragma mark - Contents

TEST_F(PermissionWindow, FillsTheTextsWithTheApplicationsNameAndTheAddress) {
  open();
  EXPECT_STREQ(controller_.titleField.stringValue.UTF8String, "Let’s stay in touch!");
  EXPECT_STREQ(controller_.descriptionField.stringValue.UTF8String,
               "Editor invites you to receive its newsletters and offers.");
  EXPECT_STREQ(controller_.informativeField.stringValue.UTF8String,
               "Pellmar will share your jane@example.com email with the developers of Editor.");
  EXPECT_STREQ(controller_.cancelButton.title.UTF8String, "No, Thanks");
  EXPECT_STREQ(controller_.okButton.title.UTF8String, "Sure, I’m In");
}

TEST_F(PermissionWindow, LeavesAnUnknownAddressEmpty) {
  open(nil);
  EXPECT_STREQ(controller_.informativeField.stringValue.UTF8String,
               "Pellmar will share your  email with the developers of Editor.");
}

TEST_F(PermissionWindow, LeavesTheNameOfANamelessApplicationEmpty) {
  sAppName = nil;
  open();
  EXPECT_STREQ(controller_.descriptionField.stringValue.UTF8String,
               " invites you to receive its newsletters and offers.");
}

TEST_F(PermissionWindow, ShowsAnAddressWithPerCentSignsAsItIs) {
  open(@"100%@%s%n@example.com");
  EXPECT_STREQ(controller_.informativeField.stringValue.UTF8String,
               "Pellmar will share your 100%@%s%n@example.com email with the developers of "
               "Editor.");
}

TEST_F(PermissionWindow, GoesRoundTheButtonsWithTheTabKey) {
  open();
  EXPECT_EQ(controller_.window.initialFirstResponder, controller_.okButton);
  EXPECT_EQ(controller_.okButton.nextKeyView, controller_.closeButton);
  EXPECT_EQ(controller_.closeButton.nextKeyView, controller_.cancelButton);
  EXPECT_EQ(controller_.cancelButton.nextKeyView, controller_.okButton);
}

TEST_F(PermissionWindow, GivesTheKeysToTheirButtons) {
  open();
  EXPECT_STREQ(controller_.closeButton.keyEquivalent.UTF8String, "\x1b");
  EXPECT_STREQ(controller_.okButton.keyEquivalent.UTF8String, "\r");
  EXPECT_STREQ(controller_.cancelButton.keyEquivalent.UTF8String, "");
}

#pragma mark - Screen readers

TEST_F(PermissionWindow, IsAnnouncedByItsHeadline) {
  open();
  EXPECT_STREQ(controller_.window.accessibilityTitle.UTF8String, "Let’s stay in touch!");
}

namespace {

/// What a screen reader comes upon, or nil: a control with a single cell may stand back for that.
id SpokenPartOf(NSView *view) {
  if ([view isAccessibilityElement]) {
    return view;
  }
  NSCell *cell = [view isKindOfClass:NSControl.class] ? [(NSControl *)view cell] : nil;
  return [cell isAccessibilityElement] ? cell : nil;
}

}  // namespace

TEST_F(PermissionWindow, NamesEveryButtonThatCanBeSeen) {
  open();
  const struct {
    NSButton *button;
    const char *name;
  } buttons[] = {
      {controller_.okButton, "Sure, I’m In"},
      {controller_.cancelButton, "No, Thanks"},
      {controller_.closeButton, "Ask Me Later"},
  };
  for (const auto &[button, name] : buttons) {
    SCOPED_TRACE(name);
    id part = SpokenPartOf(button);
    ASSERT_NE(part, nil);
    EXPECT_TRUE([[part accessibilityRole] isEqualToString:NSAccessibilityButtonRole]);
    NSString *label = [part accessibilityLabel];
    EXPECT_STREQ((label.length > 0 ? label : [part accessibilityTitle]).UTF8String, name);
  }
  EXPECT_STREQ([controller_.closeButton.cell accessibilityLabel].UTF8String, "Ask Me Later");
  EXPECT_STREQ(controller_.closeButton.title.UTF8String, "");
}

TEST_F(PermissionWindow, ReadsItsTextsOut) {
  open();
  for (NSTextField *field in
       @[ controller_.titleField, controller_.descriptionField, controller_.informativeField ]) {
    id part = SpokenPartOf(field);
    ASSERT_NE(part, nil);
    EXPECT_TRUE([[part accessibilityRole] isEqualToString:NSAccessibilityStaticTextRole]);
    EXPECT_STREQ([[part accessibilityValue] UTF8String], field.stringValue.UTF8String);
  }
}

TEST_F(PermissionWindow, KeepsPicturesAndTheInvisibleButtonFromScreenReaders) {
  open();
  NSView *button = commandWButton();
  ASSERT_NE(button, nil);
  for (NSView *view in @[ controller_.iconView, controller_.envelopeView, button ]) {
    EXPECT_EQ(SpokenPartOf(view), nil);
  }
}

TEST_F(PermissionWindow, SpeaksNothingButItsTextsAndButtons) {
  open();
  // What a toolkit's control is made of is its own affair.
  NSMutableArray *views = [NSMutableArray arrayWithObject:controller_.window.contentView];
  NSMutableSet *spoken = [NSMutableSet set];
  while (views.count > 0) {
    NSView *view = [[views.lastObject retain] autorelease];
    [views removeLastObject];
    if (![view isKindOfClass:NSControl.class]) {
      [views addObjectsFromArray:view.subviews];
    }
    if (SpokenPartOf(view) != nil) {
      [spoken addObject:[NSValue valueWithNonretainedObject:view]];
    }
  }
  NSMutableSet *expected = [NSMutableSet set];
  for (NSView *view in @[
         controller_.titleField, controller_.descriptionField, controller_.informativeField,
         controller_.okButton, controller_.cancelButton, controller_.closeButton
       ]) {
    [expected addObject:[NSValue valueWithNonretainedObject:view]];
  }
  EXPECT_TRUE([spoken isEqualToSet:expected]) << spoken.description.UTF8String;
}

#pragma mark - Answers

TEST_F(PermissionWindow, HandsBackTheAddressOnlyWhenItIsAllowed) {
  open();
  [controller_.okButton performClick:nil];
  [controller_ showWindow:nil];
  [controller_.cancelButton performClick:nil];
  [controller_ showWindow:nil];
  [controller_.closeButton performClick:nil];
  ASSERT_EQ(answers_.size(), 3u);
  EXPECT_EQ(answers_[0].choice, AFXConsentChoiceAllowed);
  EXPECT_STREQ(answers_[0].email.UTF8String, "jane@example.com");
  EXPECT_EQ(answers_[1].choice, AFXConsentChoiceDeclined);
  EXPECT_EQ(answers_[1].email, nil);
  EXPECT_EQ(answers_[2].choice, AFXConsentChoiceAskLater);
  EXPECT_EQ(answers_[2].email, nil);
}

TEST_F(PermissionWindow, IsHiddenByAnAnswerAndCanBeShownAgain) {
  open();
  EXPECT_TRUE(controller_.window.isVisible);
  [controller_ forbidEmailSharing:nil];
  EXPECT_FALSE(controller_.window.isVisible);
  [controller_.window setFrameOrigin:NSMakePoint(1, 1)];
  [controller_ showWindow:nil];
  EXPECT_TRUE(controller_.window.isVisible);
  EXPECT_TRUE(comesToStandInTheMiddle());
  [controller_ forbidEmailSharing:nil];
  EXPECT_EQ(answers_.size(), 2u);
}

TEST_F(PermissionWindow, DropsTheAnswerWithoutACompletion) {
  open();
  controller_.completion = nil;
  [controller_ allowEmailSharing:nil];
  EXPECT_FALSE(controller_.window.isVisible);
  EXPECT_TRUE(answers_.empty());
}

TEST_F(PermissionWindow, AllowsWithoutAnAddress) {
  open(nil);
  [controller_ allowEmailSharing:nil];
  ASSERT_EQ(answers_.size(), 1u);
  EXPECT_EQ(answers_[0].choice, AFXConsentChoiceAllowed);
  EXPECT_EQ(answers_[0].email, nil);
}

TEST_F(PermissionWindow, KeepsTheAddressAsItWasGiven) {
  NSMutableString *email = [NSMutableString stringWithString:@"a@example.com"];
  open(email);
  [email setString:@"b@example.com"];
  [controller_ allowEmailSharing:nil];
  ASSERT_EQ(answers_.size(), 1u);
  EXPECT_STREQ(answers_[0].email.UTF8String, "a@example.com");
}

#pragma mark - Appearance

namespace {

/// The red, green and blue of a gray color, in the space that it was made in.
double Brightness(NSColor *color, NSColorSpace *space) {
  return [color colorUsingColorSpace:space].redComponent;
}

}  // namespace

TEST_F(PermissionWindow, FollowsTheAppearanceWhileItIsUp) {
  ASSERT_TRUE(UseAppearance(@"NSAppearanceNameAqua"));
  open();
  const auto comesToShow = [this](CGFloat envelope) {
    return ComesTrue([=] { return controller_.envelopeView.image.size.width == envelope; });
  };
  const auto textIs = [](NSTextField *field, double gray) {
    EXPECT_NEAR(Brightness(field.textColor, NSColorSpace.sRGBColorSpace), gray, 0.01);
  };
  const auto footerIs = [this](double gray) {
    EXPECT_NEAR(
        Brightness(controller_.informativeField.backgroundColor, NSColorSpace.genericRGBColorSpace),
        gray, 0.01);
  };
  EXPECT_TRUE(comesToShow(214.0));
  textIs(controller_.titleField, 0.0);

  ASSERT_TRUE(UseAppearance(@"NSAppearanceNameDarkAqua"));
  EXPECT_TRUE(comesToShow(213.0));
  textIs(controller_.titleField, 1.0);
  textIs(controller_.descriptionField, 1.0);
  footerIs(0x33 / 255.0);
  EXPECT_EQ(NSWidth(AlignmentOf(controller_.envelopeView)), 214.0);

  ASSERT_TRUE(UseAppearance(@"NSAppearanceNameAqua"));
  EXPECT_TRUE(comesToShow(214.0));
  textIs(controller_.titleField, 0.0);
  textIs(controller_.descriptionField, 0x80 / 255.0);
  footerIs(0xF9 / 255.0);
}

TEST_F(PermissionWindow, NeitherObservesNorFollowsTheAppearanceOnAnOldSystem) {
  sObservations.clear();
  PlatformSetOperatingSystemVersion((NSOperatingSystemVersion){10, 13, 6});
  ASSERT_TRUE(UseAppearance(@"NSAppearanceNameAqua"));
  open();
  ASSERT_TRUE(UseAppearance(@"NSAppearanceNameDarkAqua"));
  NSWindow *window = controller_.window;
  EXPECT_TRUE(ComesTrue([=] {
    return [window.effectiveAppearance.name isEqualToString:@"NSAppearanceNameDarkAqua"];
  }));
  EXPECT_EQ(controller_.envelopeView.image.size.width, 214.0);
  close();
  EXPECT_EQ(sObservations, std::vector<std::string>{});
  PlatformSetOperatingSystemVersion((NSOperatingSystemVersion){14, 6, 0});
  ASSERT_TRUE(UseAppearance(@"NSAppearanceNameAqua"));
}

TEST_F(PermissionWindow, LeavesNoObserverBehind) {
  sObservations.clear();
  NSWindow *window = [open().window retain];
  EXPECT_EQ(sObservations, std::vector<std::string>{"+effectiveAppearance"});
  close();
  EXPECT_EQ(sObservations,
            (std::vector<std::string>{"+effectiveAppearance", "-effectiveAppearance"}));
  [window release];
}
