//
// What the consent window is made of: every value, name and order that its look and its answers
// depend on, as it is handed to the toolkit.
//

#import <AppKit/AppKit.h>
#import <CocoaTesting/PlatformVersions.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "alignment.h"
#include "event_loop.h"
#include "method_swap.h"
#import "ui/AFXPermissionWindow.h"
#import "ui/AFXPermissionWindowController.h"
#import "ui/extensions/NSFont+Extensions.h"
#import "ui/extensions/NSView+AFXEnxtensions.h"

@interface AFXPermissionWindowController (Private)
- (void)setupUI;
- (void)setupAppearance;
- (void)updateAccordingToAppearance;
- (NSString *)_appName;
- (NSTextField *)_defaultTextField;
- (NSTextField *)_titleField;
- (NSTextField *)_descriptionField;
- (NSTextField *)_informativeField;
- (NSImageView *)_iconView;
- (NSImageView *)_envelopeView;
- (NSButton *)_closeButton;
- (NSButton *)_pixelCloseButton;
- (NSButton *)_cancelButton;
- (NSButton *)_okButton;
@end

namespace {

using Lines = std::vector<std::string>;

std::string Text(NSString *string) { return string ? string.UTF8String : "(nil)"; }

std::string Number(double value) {
  NSString *digits = [NSString stringWithFormat:@"%g", value];
  return digits.UTF8String;
}

std::string RectText(NSRect value) {
  return Number(value.origin.x) + " " + Number(value.origin.y) + " " + Number(value.size.width) +
         " " + Number(value.size.height);
}

/// The swizzled methods record here what they are called with.
Lines sCalls;

Lines Taken() {
  Lines calls;
  calls.swap(sCalls);
  return calls;
}

/// What is said of the application where `Translations` lives.
NSString *sName;
NSDictionary *sTranslations;

/// A color by its space and components; one of the toolkit's own, which has neither, by its name.
std::string Describe(NSColor *color) {
  if ([color.colorSpaceName isEqualToString:NSNamedColorSpace]) {
    return Text(color.description);
  }
  const std::map<std::string, NSColorSpace *> spaces = {
      {"generic", NSColorSpace.genericRGBColorSpace}, {"sRGB", NSColorSpace.sRGBColorSpace}};
  for (const auto &[name, space] : spaces) {
    if ([color.colorSpace isEqual:space] && color.numberOfComponents == 4) {
      CGFloat parts[4] = {};
      [color getComponents:parts];
      std::string hex;
      for (const CGFloat part : parts) {
        NSString *digits = [NSString stringWithFormat:@"%02X", (int)(part * 255.0 + 0.5)];
        hex += digits.UTF8String;
      }
      return name + " " + hex;
    }
  }
  return Text(color.description);
}

class PermissionWindowContents : public testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    ASSERT_TRUE(UseAppearance(NSAppearanceNameAqua));
    sCalls.clear();
    sName = @"Editor";
    sTranslations = @{};
  }

  void TearDown() override {
    close();
    UseAppearance(nil);
    [pool_ release];
  }

  AFXPermissionWindowController *make(NSString *email = @"jane@example.com") {
    controller_ = [[AFXPermissionWindowController alloc]
        initWithUserEmail:email
        completionHandler:^(AFXConsentChoice choice, NSString *address) {
          sCalls.push_back("completion " + std::to_string(choice) + " " + Text(address));
        }];
    return controller_;
  }

  void close() {
    [controller_.window orderOut:nil];
    [controller_ release];
    controller_ = nil;
  }

  /// The words by which the tests speak of the window's views.
  std::string nameOf(id view) const {
    NSView *content = controller_.window.contentView;
    const std::vector<std::pair<id, const char *>> names = {
        {content, "content"},
        {controller_.iconView.superview, "images"},
        {controller_.iconView, "icon"},
        {controller_.envelopeView, "envelope"},
        {controller_.titleField, "title"},
        {controller_.descriptionField, "description"},
        {controller_.informativeField, "info"},
        {controller_.closeButton, "close"},
        {controller_.cancelButton, "cancel"},
        {controller_.okButton, "ok"},
    };
    for (const auto &[known, name] : names) {
      if (known == view) {
        return name;
      }
    }
    if (view == nil) {
      return "nothing";
    }
    if ([view isKindOfClass:NSButton.class] && [[view keyEquivalent] isEqualToString:@"w"]) {
      return "Command-W";
    }
    return [view isMemberOfClass:NSView.class] && [view superview] == content ? "spacer" : "?";
  }

  AFXPermissionWindowController *controller_ = nil;

 private:
  NSAutoreleasePool *pool_ = nil;
};

}  // namespace

#pragma mark - Window

namespace {

using InitWindow = id(id, SEL, NSRect, NSUInteger, NSBackingStoreType, BOOL);
const MethodSwap *sInitWindow;

id RecordInitWindow(id self, SEL cmd, NSRect contents, NSUInteger style, NSBackingStoreType backing,
                    BOOL defer) {
  if ([self isKindOfClass:AFXPermissionWindow.class]) {
    sCalls.push_back(RectText(contents) + ", style " + std::to_string(style) + ", backing " +
                     std::to_string(backing) + ", defer " + (defer ? "YES" : "NO"));
  }
  return sInitWindow->original<InitWindow>()(self, cmd, contents, style, backing, defer);
}

}  // namespace

TEST_F(PermissionWindowContents, WindowIsABorderlessOneWithARetainedStoreMadeAtOnce) {
  MethodSwap swap(class_getInstanceMethod(NSWindow.class,
                                          @selector(initWithContentRect:styleMask:backing:defer:)),
                  RecordInitWindow);
  sInitWindow = &swap;
  make();
  EXPECT_EQ(Taken(), Lines{"0 0 556 355, style 0, backing 0, defer NO"});
}

TEST_F(PermissionWindowContents, WindowIsClearShadowedDraggableAndReleasedWhenClosed) {
  // Without a controller, which decides over its window's release itself.
  NSWindow *window = [[AFXPermissionWindow alloc] initWithContentRect:NSMakeRect(0, 0, 300, 200)];
  EXPECT_TRUE(window.isReleasedWhenClosed);
  EXPECT_TRUE([window isMovableByWindowBackground]);
  EXPECT_FALSE([window isOpaque]);
  EXPECT_TRUE([window.backgroundColor isEqual:NSColor.clearColor]);
  EXPECT_TRUE(window.hasShadow);
  EXPECT_EQ(window.level, NSNormalWindowLevel);
  [window release];
}

/// The content views that windows were given.
static Lines sContents;

@implementation AFXPermissionWindow (ContentRecording)

// The toolkit may give a content view a frame and a mask of its own.
- (void)setContentView:(NSView *)view {
  if (view) {
    sContents.push_back(RectText(view.frame) + ", mask " + std::to_string(view.autoresizingMask) +
                        ", radius " + Number(view.layer.cornerRadius));
  }
  [super setContentView:view];
}

@end

TEST_F(PermissionWindowContents, BackgroundIsARoundedLayerThatGrowsWithItsWindow) {
  AFXPermissionWindow *window =
      [[AFXPermissionWindow alloc] initWithContentRect:NSMakeRect(0, 0, 300, 200)];
  EXPECT_EQ(sContents.back(), "0 0 300 200, mask 18, radius 5");
  NSView *background = window.contentView;
  EXPECT_TRUE([background isMemberOfClass:NSView.class]);
  EXPECT_EQ(RectText(background.frame), "0 0 300 200");
  EXPECT_EQ(background.autoresizingMask, 18u);
  EXPECT_TRUE(background.wantsLayer);
  EXPECT_EQ(background.layer.cornerRadius, 5.0);
  NSColor *gray = [NSColor colorWithRed:249 / 255.0 green:249 / 255.0 blue:249 / 255.0 alpha:1.0];
  EXPECT_TRUE(CGColorEqualToColor(background.layer.backgroundColor, gray.CGColor));
  [window release];
}

#pragma mark - Texts

namespace {

using SystemFont = NSFont *(id, SEL, CGFloat, AFXFontWeight);
const MethodSwap *sSystemFont;

NSFont *RecordSystemFont(id self, SEL cmd, CGFloat size, AFXFontWeight weight) {
  const std::map<AFXFontWeight, const char *> names = {{AFXFontWeightUltraLight, "ultralight"},
                                                       {AFXFontWeightThin, "thin"},
                                                       {AFXFontWeightLight, "light"},
                                                       {AFXFontWeightRegular, "regular"},
                                                       {AFXFontWeightMedium, "medium"}};
  sCalls.push_back(Number(size) + " " + (names.count(weight) ? names.at(weight) : "another"));
  return sSystemFont->original<SystemFont>()(self, cmd, size, weight);
}

Method SystemFontMethod() {
  return class_getClassMethod(NSFont.class, @selector(afx_systemFontOfSize:weight:));
}

}  // namespace

TEST_F(PermissionWindowContents, TextsHaveTheirFontsColorsAndBackgrounds) {
  make();
  MethodSwap swap(SystemFontMethod(), RecordSystemFont);
  sSystemFont = &swap;
  const std::string standard =
      Describe([[[[NSTextField alloc] initWithFrame:NSZeroRect] autorelease] textColor]);
  const struct {
    SEL factory;
    const char *font;
    std::string color;
    std::optional<std::string> background;
  } rows[] = {
      {@selector(_titleField), "32 thin", standard, std::nullopt},
      {@selector(_descriptionField), "14 light", "sRGB 808080FF", std::nullopt},
      {@selector(_informativeField), "11 light", "sRGB A6A6A6FF", "generic F9F9F9FF"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(sel_getName(row.factory));
    Taken();
    NSTextField *field = [controller_ performSelector:row.factory];
    EXPECT_EQ(Taken(), Lines{row.font});
    EXPECT_TRUE([field isMemberOfClass:NSTextField.class]);
    EXPECT_EQ(Describe(field.textColor), row.color);
    EXPECT_EQ(field.drawsBackground, row.background.has_value());
    if (row.background) {
      EXPECT_EQ(Describe(field.backgroundColor), *row.background);
    }
    EXPECT_FALSE(field.isEditable);
    EXPECT_FALSE([field isBordered]);
    EXPECT_EQ(field.alignment, NSTextAlignmentCenter);
    EXPECT_EQ([field.cell lineBreakMode], NSLineBreakByWordWrapping);
    EXPECT_FALSE([field.cell usesSingleLineMode]);
    // It was fitted to its text.
    const NSSize size = field.frame.size;
    [field sizeToFit];
    EXPECT_GT(size.width, 0.0);
    EXPECT_TRUE(NSEqualSizes(field.frame.size, size));
  }
}

TEST_F(PermissionWindowContents, EveryTextStartsFromAPlainLabel) {
  make();
  NSTextField *field = [controller_ _defaultTextField];
  EXPECT_EQ(RectText(field.frame), "0 0 0 0");
  EXPECT_FALSE(field.isEditable);
  EXPECT_FALSE([field isBordered]);
  EXPECT_FALSE(field.drawsBackground);
  EXPECT_EQ([field.cell lineBreakMode], 0u);
  EXPECT_FALSE([field.cell usesSingleLineMode]);
  EXPECT_EQ(field.alignment, NSTextAlignmentCenter);
}

TEST_F(PermissionWindowContents, TextsWrapInsideTheWindow) {
  make();
  for (NSTextField *field in
       @[ controller_.titleField, controller_.descriptionField, controller_.informativeField ]) {
    EXPECT_EQ(field.preferredMaxLayoutWidth, 540.0);
  }
}

#pragma mark - Translations

namespace {

// The toolkit looks texts and settings up too: in other bundles, and other keys.

const MethodSwap *sTranslate;

using Translate = NSString *(id, SEL, NSString *, NSString *, NSString *);

NSString *LookUpTranslation(NSBundle *bundle, SEL cmd, NSString *key, NSString *value,
                            NSString *table) {
  if (bundle != NSBundle.mainBundle) {
    return sTranslate->original<Translate>()(bundle, cmd, key, value, table);
  }
  sCalls.push_back(Text(key) + "|" + Text(value) + "|" + Text(table));
  return [sTranslations objectForKey:key] ?: key;
}

const MethodSwap *sTellInfo;

using TellInfo = id(id, SEL, NSString *);

id RecordedInfo(NSBundle *bundle, SEL cmd, NSString *key) {
  if (bundle != NSBundle.mainBundle || ![key isEqualToString:@"CFBundleName"]) {
    return sTellInfo->original<TellInfo>()(bundle, cmd, key);
  }
  return sName;
}

/// Has texts be looked up in `sTranslations`, and the application be called `sName`, while it
/// lives.
class Translations {
 public:
  Translations()
      : texts_(class_getInstanceMethod(NSBundle.class, @selector(localizedStringForKey:
                                                                                 value:table:)),
               LookUpTranslation),
        info_(class_getInstanceMethod(NSBundle.class, @selector(objectForInfoDictionaryKey:)),
              RecordedInfo) {
    sTranslate = &texts_;
    sTellInfo = &info_;
  }

 private:
  const MethodSwap texts_;
  const MethodSwap info_;
};

NSString *const sTitleKey = @"Let’s stay in touch!";
NSString *const sDescriptionKey = @"%@ invites you to receive its newsletters and offers.";
NSString *const sInfoKey = @"Pellmar will share your %@ email with the developers of %@.";

}  // namespace

TEST_F(PermissionWindowContents, TextsAreLookedUpInTheTablePellmarOfTheMainBundle) {
  Translations translations;
  make();
  EXPECT_EQ(Taken(), (Lines{
                         "Let’s stay in touch!||Pellmar",
                         "%@ invites you to receive its newsletters and offers.||Pellmar",
                         "Pellmar will share your %@ email with the developers of %@.||Pellmar",
                         "Ask Me Later||Pellmar",
                         "No, Thanks||Pellmar",
                         "Sure, I’m In||Pellmar",
                     }));
}

TEST_F(PermissionWindowContents, NameIsTheMainBundles) {
  make();
  Translations translations;
  EXPECT_EQ(Text([controller_ _appName]), "Editor");
  sName = nil;
  EXPECT_EQ([controller_ _appName], nil);
}

TEST_F(PermissionWindowContents, TranslationsAreFilledWithAddressAndName) {
  sTranslations = @{
    sTitleKey : @"Von %@, 100%%",
    sDescriptionKey : @"%1$@ lädt ein: %1$@",
    sInfoKey : @"%2$@ erhält %1$@",
    @"No, Thanks" : @"Nein %@",
    @"Sure, I’m In" : @"Ja %d",
    @"Ask Me Later" : @"Später %n"
  };
  Translations translations;
  make();
  EXPECT_EQ(Text(controller_.titleField.stringValue), "Von Editor, 100%");
  EXPECT_EQ(Text(controller_.descriptionField.stringValue), "Editor lädt ein: Editor");
  EXPECT_EQ(Text(controller_.informativeField.stringValue), "Editor erhält jane@example.com");
  EXPECT_EQ(Text(controller_.cancelButton.title), "Nein %@");
  EXPECT_EQ(Text(controller_.okButton.title), "Ja %d");
  EXPECT_EQ(Text(controller_.closeButton.accessibilityLabel), "Später %n");
}

TEST_F(PermissionWindowContents, TranslationsWithOtherPlaceholdersGiveWayToTheEnglishText) {
  const std::map<NSString *,
                 std::pair<NSTextField *(*)(AFXPermissionWindowController *), const char *>>
      fields = {
          {sTitleKey,
           {[](AFXPermissionWindowController *c) { return c.titleField; }, "Let’s stay in touch!"}},
          {sDescriptionKey,
           {[](AFXPermissionWindowController *c) { return c.descriptionField; },
            "Editor invites you to receive its newsletters and offers."}},
          {sInfoKey,
           {[](AFXPermissionWindowController *c) { return c.informativeField; },
            "Pellmar will share your jane@example.com email with the developers of "
            "Editor."}},
      };
  for (const auto &[key, expected] : fields) {
    for (NSString *translation in @[ @"%@ %@ %@", @"%n", @"100 %" ]) {
      SCOPED_TRACE(Text(key) + " = " + Text(translation));
      sTranslations = @{key : translation};
      Translations translations;
      testing::internal::CaptureStderr();
      make();
      const std::string log = testing::internal::GetCapturedStderr();
      EXPECT_EQ(Text(expected.first(controller_).stringValue), expected.second);
      // One line of the client's own.
      const size_t line = log.find("Pellmar: ");
      EXPECT_NE(log.find(Text(key), line), std::string::npos) << log;
      EXPECT_EQ(log.find("Pellmar: ", line + 1), std::string::npos) << log;
      close();
    }
  }
}

TEST_F(PermissionWindowContents, SecondPositionIsOnlyThereInTheFooter) {
  sTranslations = @{sTitleKey : @"%2$@", sDescriptionKey : @"%2$@", sInfoKey : @"%2$@"};
  Translations translations;
  make();
  EXPECT_EQ(Text(controller_.titleField.stringValue), "Let’s stay in touch!");
  EXPECT_EQ(Text(controller_.descriptionField.stringValue),
            "Editor invites you to receive its newsletters and offers.");
  EXPECT_EQ(Text(controller_.informativeField.stringValue), "Editor");
}

TEST_F(PermissionWindowContents, LongTranslationsWrapInsideTheWindow) {
  Translations translations;
  make();
  [controller_.window.contentView layoutSubtreeIfNeeded];
  const CGFloat titleLine = NSHeight(controller_.titleField.frame);
  const CGFloat infoLine = NSHeight(controller_.informativeField.frame);
  close();
  sTranslations = @{
    sTitleKey : @"Möchten Sie auch weiterhin mit uns in Verbindung bleiben?",
    sInfoKey : @"Pellmar teilt Ihre E-Mail-Adresse %@ mit den Entwicklern von %@, die sie für "
               @"Neuigkeiten und besondere Angebote nutzen."
  };
  make();
  [controller_.window.contentView layoutSubtreeIfNeeded];
  EXPECT_GE(NSHeight(controller_.titleField.frame), 2 * titleLine - 8);
  EXPECT_GE(NSHeight(controller_.informativeField.frame), 2 * infoLine - 6);
  for (NSTextField *field in
       @[ controller_.titleField, controller_.descriptionField, controller_.informativeField ]) {
    const NSRect placed = AlignmentOf(field);
    EXPECT_EQ(NSMinX(placed), 8.0);
    EXPECT_EQ(NSWidth(placed), 540.0);
    EXPECT_GE(NSMinY(placed), 8.0);
  }
  EXPECT_TRUE(NSEqualSizes(controller_.window.frame.size, NSMakeSize(556, 355)));
}

#pragma mark - A very long address

TEST_F(PermissionWindowContents, LongAddressIsShortenedOnlyWhereItIsShown) {
  sTranslations = @{sInfoKey : @"%@"};
  Translations translations;
  const struct {
    NSUInteger length;
    std::string shown;
  } rows[] = {{320, std::string(320, 'x')}, {321, std::string(320, 'x') + "…"}};
  for (const auto &row : rows) {
    NSString *email = [@"" stringByPaddingToLength:row.length withString:@"x" startingAtIndex:0];
    make(email);
    EXPECT_EQ(Text(controller_.informativeField.stringValue), row.shown);
    EXPECT_EQ(Text(controller_.userEmail), Text(email));
    close();
  }
}

TEST_F(PermissionWindowContents, LongAddressIsNotCutInTheMiddleOfACharacter) {
  sTranslations = @{sInfoKey : @"%@"};
  Translations translations;
  NSString *email = [[@"" stringByPaddingToLength:319 withString:@"x"
                                  startingAtIndex:0] stringByAppendingString:@"🎉 party"];
  make(email);
  EXPECT_EQ(Text(controller_.informativeField.stringValue), std::string(319, 'x') + "…");
}

#pragma mark - Pictures

namespace {

using ImageNamed = NSImage *(id, SEL, NSString *);
const MethodSwap *sImageNamed;

NSImage *sIcon;

NSImage *IconNamed(id self, SEL cmd, NSString *name) {
  return [name isEqualToString:NSImageNameApplicationIcon]
             ? sIcon
             : sImageNamed->original<ImageNamed>()(self, cmd, name);
}

}  // namespace

TEST_F(PermissionWindowContents, IconIsTheApplications) {
  make();
  sIcon = [[[NSImage alloc] initWithSize:NSMakeSize(16, 16)] autorelease];
  MethodSwap swap(class_getClassMethod(NSImage.class, @selector(imageNamed:)), IconNamed);
  sImageNamed = &swap;
  NSImageView *view = [controller_ _iconView];
  EXPECT_EQ(RectText(view.frame), "0 0 110 110");
  EXPECT_EQ(view.image, sIcon);
}

TEST_F(PermissionWindowContents, EnvelopeIsAsLargeAsItsPicture) {
  make();
  NSImageView *view = [controller_ _envelopeView];
  EXPECT_EQ(RectText(view.frame), "0 0 214 149");
  EXPECT_TRUE(NSEqualSizes(view.image.size, NSMakeSize(214, 149)));
}

#pragma mark - Buttons

TEST_F(PermissionWindowContents, ButtonsHaveTheirKeysActionsAndBezels) {
  make();
  MethodSwap swap(SystemFontMethod(), RecordSystemFont);
  sSystemFont = &swap;
  const struct {
    SEL factory;
    const char *frame;
    const char *title;
    const char *key;
    SEL action;
    bool isPushButton;
    bool isTransparent;
  } rows[] = {
      {@selector(_closeButton), "0 0 12 12", "", "\x1b", @selector(askLater:), false, false},
      {@selector(_pixelCloseButton), "0 0 0 0", "", "w", @selector(askLater:), false, true},
      {@selector(_cancelButton), "0 0 0 0", "No, Thanks", "", @selector(forbidEmailSharing:), true,
       false},
      {@selector(_okButton), "0 0 0 0", "Sure, I’m In", "\r", @selector(allowEmailSharing:), true,
       false},
  };
  NSButton *plain = [[[NSButton alloc] initWithFrame:NSZeroRect] autorelease];
  for (const auto &row : rows) {
    SCOPED_TRACE(sel_getName(row.factory));
    Taken();
    NSButton *button = [controller_ performSelector:row.factory];
    const bool isCommandW = row.isTransparent;
    EXPECT_EQ(RectText(button.frame), row.frame);
    EXPECT_EQ(Text(button.title), row.title);
    EXPECT_EQ(Text(button.keyEquivalent), row.key);
    EXPECT_EQ(button.keyEquivalentModifierMask,
              isCommandW ? 1048576u : plain.keyEquivalentModifierMask);
    EXPECT_EQ(button.target, controller_);
    EXPECT_TRUE(sel_isEqual(button.action, row.action));
    EXPECT_EQ([button isBordered], row.isPushButton);
    EXPECT_EQ([button isTransparent], row.isTransparent);
    EXPECT_EQ(button.refusesFirstResponder, isCommandW);
    EXPECT_EQ(button.image != nil, row.factory == @selector(_closeButton));
    if (row.isPushButton) {
      EXPECT_EQ(button.bezelStyle, 1u);
      EXPECT_EQ(Taken(), Lines{"13 regular"});
    } else {
      EXPECT_EQ(Taken(), Lines{});
    }
  }
  EXPECT_EQ(controller_.closeButton.imagePosition, NSImageOnly);
  EXPECT_TRUE(NSEqualSizes([controller_ _closeButton].image.size, NSMakeSize(12, 12)));
}

#pragma mark - Layout

namespace {

int sInsideHelper;
std::vector<std::function<std::string()>> sLayoutCalls;
const MethodSwap *sVisualFormat;
const MethodSwap *sCentre;
const MethodSwap *sAddConstraint;
std::function<std::string(id)> sNameOf;

using VisualFormat = void(id, SEL, NSString *, NSDictionary *, NSDictionary *);
using Centre = void(id, SEL, id);
using AddConstraint = void(id, SEL, NSLayoutConstraint *);

template <typename Value>
std::string Listed(NSDictionary *dictionary, Value value) {
  std::string list;
  for (NSString *key in [dictionary.allKeys sortedArrayUsingSelector:@selector(compare:)]) {
    list += (list.empty() ? "" : ", ") + Text(key) + " " + value([dictionary objectForKey:key]);
  }
  return list;
}

// The names of views are known only when all of them are there.

void RecordVisualFormat(id self, SEL cmd, NSString *format, NSDictionary *views,
                        NSDictionary *metrics) {
  NSDictionary *keptViews = [[views retain] autorelease];
  NSDictionary *keptMetrics = [[metrics retain] autorelease];
  sLayoutCalls.push_back([=] {
    return sNameOf(self) + ": " + Text(format) + " {" + Listed(keptViews, sNameOf) + "}" +
           (keptMetrics ? " {" +
                              Listed(keptMetrics,
                                     [](NSNumber *metric) { return Number(metric.doubleValue); }) +
                              "}"
                        : "");
  });
  ++sInsideHelper;
  sVisualFormat->original<VisualFormat>()(self, cmd, format, views, metrics);
  --sInsideHelper;
}

void RecordCentre(id self, SEL cmd, id views) {
  sLayoutCalls.push_back([=] {
    std::string list;
    for (NSView *view in views) {
      list += " " + sNameOf(view);
    }
    return sNameOf(self) + ": centre" + list;
  });
  ++sInsideHelper;
  sCentre->original<Centre>()(self, cmd, views);
  --sInsideHelper;
}

void RecordAddConstraint(id self, SEL cmd, NSLayoutConstraint *constraint) {
  if (sInsideHelper == 0) {
    sLayoutCalls.push_back([=] {
      return sNameOf(self) + ": " + sNameOf(constraint.firstItem) + "." +
             std::to_string(constraint.firstAttribute) + " " + std::to_string(constraint.relation) +
             " " + sNameOf(constraint.secondItem) + "." +
             std::to_string(constraint.secondAttribute) + " × " + Number(constraint.multiplier) +
             " + " + Number(constraint.constant) + " @ " + Number(constraint.priority);
    });
  }
  sAddConstraint->original<AddConstraint>()(self, cmd, constraint);
}

}  // namespace

TEST_F(PermissionWindowContents, ConstraintsAreAddedInTheirOrder) {
  sLayoutCalls.clear();
  {
    MethodSwap visualFormat(
        class_getInstanceMethod(NSView.class, @selector(addVisualFormatConstraints:views:metrics:)),
        RecordVisualFormat);
    sVisualFormat = &visualFormat;
    MethodSwap centre(
        class_getInstanceMethod(NSView.class, @selector(addCenterXContraintForSubviews:)),
        RecordCentre);
    sCentre = &centre;
    MethodSwap addConstraint(class_getInstanceMethod(NSView.class, @selector(addConstraint:)),
                             RecordAddConstraint);
    sAddConstraint = &addConstraint;
    make();
  }
  sNameOf = [this](id view) { return nameOf(view); };
  // Controls may be made of views of their own.
  Lines lines;
  for (const auto &call : sLayoutCalls) {
    const std::string line = call();
    if (line.rfind("images: ", 0) == 0 || line.rfind("content: ", 0) == 0) {
      lines.push_back(line);
    }
  }
  sLayoutCalls.clear();
  sNameOf = nullptr;
  EXPECT_EQ(
      lines,
      (Lines{
          "images: H:[envelope(width)]| {envelope envelope} {width 214}",
          "images: V:|[envelope(height)] {envelope envelope} {height 149}",
          "images: H:|[icon(width)] {icon icon} {width 110}",
          "images: V:[icon(height)]| {icon icon} {height 110}",
          "content: H:|-(10.0)-[close(width)] {close close} {width 12}",
          "content: V:|-(8.0)-[close(height)] {close close} {height 12}",
          "content: H:|[close(0.0)] {close Command-W}",
          "content: V:|[close(0.0)] {close Command-W}",
          "content: H:[icon(width)] {icon images} {width 232}",
          "content: centre images title description info spacer",
          "content: V:|-(35.0)-[icon(i_height)]-(13.0)-[title]-(6.0)-[description]"
          "[buttons(64.0@251)]-(2.0)-[info]-(>=8.0)-| {buttons spacer, description description, "
          "icon images, info info, title title} {i_height 148}",
          "content: H:|-(d)-[title]-(d)-| {title title} {d 8}",
          "content: H:|-(d)-[description]-(d)-| {description description} {d 8}",
          "content: H:|-(d)-[info]-(d)-| {info info} {d 8}",
          "content: H:|-(8.0)-[info]-(8.0)-| {info info}",
          "content: H:[cancel(>=110.0)]-(6.0)-[center(1.0)]-(6.0)-[ok(cancel)] {cancel cancel, "
          "center spacer, ok ok}",
          "content: cancel.10 0 spacer.10 × 1 + 0 @ 1000",
          "content: ok.10 0 spacer.10 × 1 + 0 @ 1000",
      }));
}

TEST_F(PermissionWindowContents, ViewsAreStackedInTheirOrderAndPlacedByConstraints) {
  make();
  Lines names;
  NSView *content = controller_.window.contentView;
  for (NSView *view in content.subviews) {
    names.push_back(nameOf(view));
    EXPECT_FALSE(view.translatesAutoresizingMaskIntoConstraints) << names.back();
  }
  EXPECT_EQ(names, (Lines{"images", "title", "description", "info", "Command-W", "close", "cancel",
                          "ok", "spacer"}));
  names.clear();
  for (NSView *view in controller_.iconView.superview.subviews) {
    names.push_back(nameOf(view));
    EXPECT_FALSE(view.translatesAutoresizingMaskIntoConstraints) << names.back();
  }
  EXPECT_EQ(names, (Lines{"envelope", "icon"}));
  EXPECT_TRUE(content.wantsLayer);
}

#pragma mark - Making

/// Records in which order it is made.
@interface OrderedPermissionWindowController : AFXPermissionWindowController
@end

@implementation OrderedPermissionWindowController

- (void)setupUI {
  sCalls.push_back("setupUI " + Text(self.userEmail) + (self.completion ? " completion" : ""));
  // The window is layer-backed already; the contents do not rely on it.
  NSView *content = self.window.contentView;
  content.wantsLayer = NO;
  [super setupUI];
  EXPECT_TRUE(content.wantsLayer);
}

- (void)setupAppearance {
  sCalls.push_back(self.titleField ? "setupAppearance" : "setupAppearance before the contents");
  [super setupAppearance];
}

@end

TEST_F(PermissionWindowContents, IsMadeFromContentsToAppearance) {
  controller_ =
      [[OrderedPermissionWindowController alloc] initWithUserEmail:@"jane@example.com"
                                                 completionHandler:^(AFXConsentChoice, NSString *){
                                                 }];
  EXPECT_EQ(Taken(), (Lines{"setupUI jane@example.com completion", "setupAppearance"}));
  EXPECT_TRUE([controller_.window isMemberOfClass:AFXPermissionWindow.class]);
}

namespace {

id NoController(id, SEL, NSWindow *) { return nil; }

}  // namespace

TEST_F(PermissionWindowContents, IsNothingWithoutAnInheritedController) {
  MethodSwap swap(class_getInstanceMethod(NSWindowController.class, @selector(initWithWindow:)),
                  NoController);
  EXPECT_EQ(make(), nil);
}

TEST_F(PermissionWindowContents, CopiesItsPropertiesThatCanChange) {
  make();
  NSMutableString *email = [NSMutableString stringWithString:@"a@example.com"];
  controller_.userEmail = email;
  [email setString:@"b@example.com"];
  EXPECT_EQ(Text(controller_.userEmail), "a@example.com");
  int number = 7;
  AFXPermissionCompletion onTheStack = ^(AFXConsentChoice, NSString *) {
    (void)number;
  };
  controller_.completion = onTheStack;
  EXPECT_NE((id)controller_.completion, (id)onTheStack);
}

#pragma mark - Showing and answering

/// What the window says is its appearance, instead of what is.
static id sAppearance;

@implementation AFXPermissionWindow (Recording)

- (NSAppearance *)effectiveAppearance {
  return sAppearance ?: [super effectiveAppearance];
}

- (void)center {
  sCalls.push_back("center");
  [super center];
}

- (void)orderOut:(id)sender {
  sCalls.push_back("orderOut: " + Text([sender description]));
  [super orderOut:sender];
}

@end

namespace {

const MethodSwap *sShowWindow;

using WithSender = void(id, SEL, id);

void RecordShowWindow(id self, SEL cmd, id sender) {
  sCalls.push_back("super showWindow: " + Text([sender description]));
  sShowWindow->original<WithSender>()(self, cmd, sender);
}

}  // namespace

TEST_F(PermissionWindowContents, IsCentredAndThenShown) {
  make();
  MethodSwap swap(class_getInstanceMethod(NSWindowController.class, @selector(showWindow:)),
                  RecordShowWindow);
  sShowWindow = &swap;
  [controller_ showWindow:@"the sender"];
  EXPECT_EQ(Taken(), (Lines{"center", "super showWindow: the sender"}));
  EXPECT_EQ(controller_.window.level, NSNormalWindowLevel);
}

TEST_F(PermissionWindowContents, IsHiddenAndThenTellsTheAnswer) {
  make();
  const struct {
    SEL action;
    const char *completion;
  } rows[] = {
      {@selector(forbidEmailSharing:), "completion 0 (nil)"},
      {@selector(allowEmailSharing:), "completion 1 jane@example.com"},
      {@selector(askLater:), "completion 2 (nil)"},
  };
  for (const auto &row : rows) {
    [controller_ performSelector:row.action withObject:@"the sender"];
    EXPECT_EQ(Taken(), (Lines{"orderOut: (nil)", row.completion}));
  }
}

#pragma mark - Appearance

/// Adds the method to the toolkit's controller, which has none of its own, to record its calls.
@implementation NSWindowController (Recording)

- (void)observeValueForKeyPath:(NSString *)keyPath
                      ofObject:(id)object
                        change:(NSDictionary *)change
                       context:(void *)context {
  sCalls.push_back("super: " + Text(keyPath) + " " + Text(object) + " " +
                   Text([change objectForKey:@"key"]) + " " +
                   std::to_string(reinterpret_cast<uintptr_t>(context)));
}

@end

TEST_F(PermissionWindowContents, HandsOnWhatElseIsObserved) {
  make();
  [controller_ observeValueForKeyPath:@"somethingElse"
                             ofObject:@"object"
                               change:@{@"key" : @"change"}
                              context:reinterpret_cast<void *>(42)];
  EXPECT_EQ(Taken(), Lines{"super: somethingElse object change 42"});
  [controller_ observeValueForKeyPath:@"effectiveAppearance"
                             ofObject:@"object"
                               change:@{}
                              context:reinterpret_cast<void *>(42)];
  EXPECT_EQ(Taken(), Lines{});
}

/// Records what it is compared with. Only the window is given it, for one question.
@interface ComparedAppearance : NSObject
@end

@implementation ComparedAppearance
- (NSString *)bestMatchFromAppearancesWithNames:(NSArray *)names {
  sCalls.push_back(Text([names componentsJoinedByString:@", "]));
  return @"NSAppearanceNameDarkAqua";
}
@end

TEST_F(PermissionWindowContents, AsksForTheBetterOfLightAndDark) {
  make();
  Taken();
  sAppearance = [[[ComparedAppearance alloc] init] autorelease];
  [controller_ updateAccordingToAppearance];
  sAppearance = nil;
  EXPECT_EQ(Taken(), Lines{"NSAppearanceNameAqua, NSAppearanceNameDarkAqua"});
  EXPECT_EQ(controller_.envelopeView.image.size.width, 213.0);
}

TEST_F(PermissionWindowContents, HasTheColorsOfItsAppearance) {
  make();
  const struct {
    NSString *appearance;
    const char *background;
    NSColor *title;
    NSColor *description;
    CGFloat envelope;
  } rows[] = {
      {NSAppearanceNameDarkAqua, "generic 333333FF", NSColor.whiteColor, NSColor.whiteColor, 213},
      {NSAppearanceNameAqua, "generic F9F9F9FF", NSColor.blackColor, nil, 214},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(Text(row.appearance));
    controller_.window.appearance = [NSAppearance appearanceNamed:row.appearance];
    ASSERT_TRUE(
        ComesTrue([&] { return controller_.envelopeView.image.size.width == row.envelope; }));
    NSColor *background = controller_.informativeField.backgroundColor;
    EXPECT_EQ(Describe(background), row.background);
    EXPECT_TRUE(CGColorEqualToColor([controller_.window.contentView layer].backgroundColor,
                                    background.CGColor));
    EXPECT_TRUE([controller_.titleField.textColor isEqual:row.title]);
    if (row.description) {
      EXPECT_TRUE([controller_.descriptionField.textColor isEqual:row.description]);
    } else {
      EXPECT_EQ(Describe(controller_.descriptionField.textColor), "sRGB 808080FF");
    }
    EXPECT_EQ(Describe(controller_.informativeField.textColor), "sRGB A6A6A6FF");
  }
}

#pragma mark - Screen readers

TEST_F(PermissionWindowContents, IsADialogNamedByItsHeadline) {
  make();
  EXPECT_TRUE(
      [controller_.window.accessibilitySubrole isEqualToString:NSAccessibilityDialogSubrole]);
  EXPECT_EQ(Text(controller_.window.accessibilityTitle), "Let’s stay in touch!");
}
