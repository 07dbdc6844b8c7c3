//
// The translations that the package brings, in the window: each text has its glyphs, is shown whole
// and lies inside the window. Languages that are written from right to left are measured when this
// is started with the defaults for that: -NSForceRightToLeftWritingDirection YES
// -AppleTextDirection YES.
//

#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "alignment.h"
#include "method_swap.h"
#import "ui/AFXPermissionWindowController.h"

@interface AFXPermissionWindowController (Private)
- (NSString *)_appName;
@end

namespace {

NSDictionary *sTexts;

NSString *LookUpTranslation(NSBundle *, SEL, NSString *key, NSString *, NSString *) {
  return [sTexts objectForKey:key] ?: key;
}

NSString *ApplicationName(AFXPermissionWindowController *, SEL) { return @"Pellmar Demo"; }

bool IsRightToLeft(const std::string &language) { return language == "ar" || language == "he"; }

/// The languages that are laid out in the direction of this process.
std::vector<std::string> Languages() {
  @autoreleasepool {
    const bool isMirrored =
        [NSUserDefaults.standardUserDefaults boolForKey:@"NSForceRightToLeftWritingDirection"];
    std::vector<std::string> found;
    for (NSString *name in
         [NSFileManager.defaultManager contentsOfDirectoryAtPath:@PELLMAR_LANGUAGES error:NULL]) {
      const std::string language = name.stringByDeletingPathExtension.UTF8String;
      if (IsRightToLeft(language) == isMirrored) {
        found.push_back(language);
      }
    }
    return found;
  }
}

class PermissionWindowLanguages : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    NSString *file = [NSString
        stringWithFormat:@"%s/%s.lproj/Pellmar.strings", PELLMAR_LANGUAGES, GetParam().c_str()];
    NSString *table = [NSString stringWithContentsOfFile:file
                                                encoding:NSUTF8StringEncoding
                                                   error:NULL];
    sTexts = [table propertyListFromStringsFileFormat];
    ASSERT_EQ(sTexts.count, 6u);
    MethodSwap texts(
        class_getInstanceMethod(NSBundle.class, @selector(localizedStringForKey:value:table:)),
        LookUpTranslation);
    MethodSwap names(
        class_getInstanceMethod(AFXPermissionWindowController.class, @selector(_appName)),
        ApplicationName);
    controller_ = [[AFXPermissionWindowController alloc]
        initWithUserEmail:@"firstname.lastname@department.example.com"
        completionHandler:nil];
    [controller_.window.contentView layoutSubtreeIfNeeded];
  }

  void TearDown() override {
    [controller_ release];
    [pool_ release];
  }

  NSView *content() const { return controller_.window.contentView; }

  NSArray *fields() const {
    return @[ controller_.titleField, controller_.descriptionField, controller_.informativeField ];
  }

  NSArray *buttons() const { return @[ controller_.cancelButton, controller_.okButton ]; }

  AFXPermissionWindowController *controller_ = nil;

 private:
  NSAutoreleasePool *pool_ = nil;
};

}  // namespace

TEST_P(PermissionWindowLanguages, EveryCharacterHasAGlyph) {
  for (NSControl *control in [fields() arrayByAddingObjectsFromArray:buttons()]) {
    NSString *text =
        [control isKindOfClass:NSButton.class] ? [(NSButton *)control title] : control.stringValue;
    NSMutableAttributedString *styled = [[[NSMutableAttributedString alloc]
        initWithString:text
            attributes:@{NSFontAttributeName : control.font}] autorelease];
    [styled fixFontAttributeInRange:NSMakeRange(0, text.length)];
    for (NSUInteger i = 0; i < text.length; ++i) {
      NSFont *font = [styled attribute:NSFontAttributeName atIndex:i effectiveRange:NULL];
      EXPECT_TRUE([font.coveredCharacterSet characterIsMember:[text characterAtIndex:i]])
          << text.UTF8String << ": no glyph for character " << i << " in "
          << font.fontName.UTF8String;
    }
  }
}

TEST_P(PermissionWindowLanguages, EveryTextIsShownWholeInsideTheWindow) {
  const NSRect window = NSInsetRect(content().bounds, 8.0, 8.0);
  for (NSTextField *field in fields()) {
    const NSRect area = AlignmentOf(field);
    EXPECT_TRUE(NSContainsRect(window, area)) << field.stringValue.UTF8String;
    NSAttributedString *text = [field.cell attributedStringValue];
    const NSSize needed = [text boundingRectWithSize:NSMakeSize(NSWidth(area), 10000.0)
                                             options:NSStringDrawingUsesLineFragmentOrigin]
                              .size;
    EXPECT_GE(NSHeight(area), std::floor(needed.height)) << field.stringValue.UTF8String;
    EXPECT_GE(NSWidth(area), std::floor(needed.width)) << field.stringValue.UTF8String;
    const int lines = static_cast<int>(std::lround(needed.height / text.size.height));
    EXPECT_LE(lines, field == controller_.informativeField ? 2 : 1) << field.stringValue.UTF8String;
  }
}

TEST_P(PermissionWindowLanguages, ButtonsShowTheirTitlesBesideEachOther) {
  const NSRect window = NSInsetRect(content().bounds, 8.0, 8.0);
  for (NSButton *button in buttons()) {
    const NSRect area = AlignmentOf(button);
    EXPECT_TRUE(NSContainsRect(window, area)) << button.title.UTF8String;
    const NSRect title = [button.cell titleRectForBounds:button.bounds];
    const NSSize needed = button.attributedTitle.size;
    EXPECT_GE(NSWidth(title), std::floor(needed.width)) << button.title.UTF8String;
    for (NSTextField *field in fields()) {
      EXPECT_FALSE(NSIntersectsRect(area, AlignmentOf(field)))
          << button.title.UTF8String << " and " << field.stringValue.UTF8String;
    }
  }
  EXPECT_FALSE(
      NSIntersectsRect(AlignmentOf(controller_.okButton), AlignmentOf(controller_.cancelButton)));
}

INSTANTIATE_TEST_SUITE_P(Languages, PermissionWindowLanguages, testing::ValuesIn(Languages()),
                         [](const auto &info) { return info.param; });
