#import <CocoaTesting/PlatformVersions.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "method_swap.h"
#import "ui/extensions/NSFont+Extensions.h"

namespace {

/// Sets the toolkit's version for one test.
class ToolkitVersion {
 public:
  explicit ToolkitVersion(double version) : before_(NSAppKitVersionNumber) {
    PlatformSetAppKitVersionNumber(version);
  }
  ~ToolkitVersion() { PlatformSetAppKitVersionNumber(before_); }

 private:
  const double before_;
};

const double sNewToolkit = 1350.0;
const double sOldToolkit = 1349.9;

/// The replaced methods and the classes below record here what they are called with.
std::vector<std::string> sCalls;

std::vector<std::string> Taken() {
  std::vector<std::string> calls;
  calls.swap(sCalls);
  return calls;
}

NSFont *sNamedFont;
const MethodSwap *sFontWithName;

/// Fakes the font of that name, unless it is one by which the toolkit makes its own.
NSFont *FontWithName(id self, SEL cmd, NSString *name, CGFloat size) {
  if (![name hasPrefix:@"HelveticaNeue"] && ![name hasPrefix:@"RobotoMono"] &&
      ![name isEqualToString:@"OtherFace"]) {
    return sFontWithName->original<NSFont *(id, SEL, NSString *, CGFloat)>()(self, cmd, name, size);
  }
  sCalls.push_back(std::string(class_getName(self)) + " fontWithName:" + name.UTF8String +
                   " size:" + std::to_string(size));
  return sNamedFont;
}

Method NamedFont() {
  sNamedFont = [NSFont userFixedPitchFontOfSize:77.0];
  return class_getClassMethod(NSFont.class, @selector(fontWithName:size:));
}

NSArray *sInstalled;
NSArray *InstalledFonts(id, SEL) { return sInstalled; }

}  // namespace

/// Takes the methods that ask about a font, and answers as it is told.
@interface OtherFont : NSFont
@end

static BOOL sKnowsWeights;

@implementation OtherFont

+ (BOOL)afx_appKitKnowsNSFontWeight {
  sCalls.push_back("knows");
  return sKnowsWeights;
}

+ (CGFloat)afx_appKitFontWeightForWeight:(AFXFontWeight)weight {
  sCalls.push_back("weight " + std::to_string(weight));
  return NSFontWeightBlack;
}

+ (NSString *)afx_legacySystemFontNameForWeight:(AFXFontWeight)weight {
  sCalls.push_back("face " + std::to_string(weight));
  return @"OtherFace";
}

// Fonts themselves come from NSFont.

+ (NSFont *)systemFontOfSize:(CGFloat)size weight:(NSFontWeight)weight {
  sCalls.push_back("systemFontOfSize:weight: of the wrong class");
  return [super systemFontOfSize:size weight:weight];
}

+ (NSFont *)systemFontOfSize:(CGFloat)size {
  sCalls.push_back("systemFontOfSize: of the wrong class");
  return [super systemFontOfSize:size];
}

+ (NSFont *)afx_systemFontOfSize:(CGFloat)size weightIfAvailable:(AFXFontWeight)weight {
  sCalls.push_back("weightIfAvailable: " + std::to_string(weight));
  return [super afx_systemFontOfSize:size weightIfAvailable:weight];
}

@end

TEST(FontWeights, AreKnownOnlyToToolkitsAfter1349) {
  const struct {
    double version;
    BOOL known;
  } cases[] = {{1349.0, NO}, {1349.9, NO}, {1350.0, YES}, {2487.0, YES}, {1348.0, NO}};
  for (const auto &each : cases) {
    ToolkitVersion version(each.version);
    EXPECT_EQ([NSFont afx_appKitKnowsNSFontWeight], each.known) << each.version;
  }
}

TEST(FontWeights, MapToTheToolkitsConstants) {
  const CGFloat constants[] = {NSFontWeightUltraLight, NSFontWeightThin,   NSFontWeightLight,
                               NSFontWeightRegular,    NSFontWeightMedium, NSFontWeightSemibold,
                               NSFontWeightBold,       NSFontWeightHeavy,  NSFontWeightBlack};
  for (NSUInteger weight = 0; weight < 9; ++weight) {
    EXPECT_EQ([NSFont afx_appKitFontWeightForWeight:(AFXFontWeight)weight], constants[weight]);
  }
  for (const NSUInteger weight : {NSUInteger{9}, NSUInteger{100}, NSUIntegerMax}) {
    EXPECT_EQ([NSFont afx_appKitFontWeightForWeight:(AFXFontWeight)weight], NSFontWeightRegular);
  }
}

TEST(LegacyFaces, AreTheTablesRows) {
  NSArray *faces = @[
    @"HelveticaNeue-UltraLight", @"HelveticaNeue-Thin", @"HelveticaNeue-Light", @"HelveticaNeue",
    @"HelveticaNeue-Medium", @"HelveticaNeue-Medium", @"HelveticaNeue-Bold",
    @"HelveticaNeue-CondensedBold", @"HelveticaNeue-CondensedBlack", @"HelveticaNeue"
  ];
  for (NSUInteger weight = 0; weight < faces.count; ++weight) {
    EXPECT_TRUE([[NSFont afx_legacySystemFontNameForWeight:(AFXFontWeight)weight]
        isEqualToString:[faces objectAtIndex:weight]])
        << weight;
  }
}

TEST(SystemFont, HasTheWeightOnANewToolkit) {
  ToolkitVersion version(sNewToolkit);
  NSFont *thin = [NSFont afx_systemFontOfSize:32.0 weight:AFXFontWeightThin];
  NSFont *bold = [NSFont afx_systemFontOfSize:32.0 weight:AFXFontWeightBold];
  EXPECT_EQ(thin.pointSize, 32.0);
  EXPECT_FALSE([thin.fontName isEqualToString:bold.fontName]);
  EXPECT_TRUE([thin isEqual:[NSFont systemFontOfSize:32.0 weight:NSFontWeightThin]]);
  EXPECT_TRUE([[NSFont afx_systemFontOfSize:32.0 weight:(AFXFontWeight)9]
      isEqual:[NSFont systemFontOfSize:32.0 weight:NSFontWeightRegular]]);
}

TEST(LegacyFaces, AreConstants) {
  for (NSUInteger weight = 0; weight < 10; ++weight) {
    NSString *face = [NSFont afx_legacySystemFontNameForWeight:(AFXFontWeight)weight];
    EXPECT_EQ(object_getClass(face), object_getClass(@"a constant"));
  }
}

TEST(SystemFont, IsTheLegacyFaceOnAnOldToolkit) {
  ToolkitVersion version(sOldToolkit);
  MethodSwap swap(NamedFont(), FontWithName);
  sFontWithName = &swap;
  Taken();
  NSFont *font = [NSFont afx_systemFontOfSize:12.0 weight:AFXFontWeightSemibold];
  EXPECT_EQ(font, sNamedFont);
  EXPECT_EQ(Taken(),
            std::vector<std::string>{"NSFont fontWithName:HelveticaNeue-Medium size:12.000000"});
}

TEST(SystemFont, IsNothingWithoutTheLegacyFace) {
  ToolkitVersion version(sOldToolkit);
  if ([NSFontManager.sharedFontManager.availableFonts containsObject:@"HelveticaNeue-Thin"]) {
    GTEST_SKIP() << "this system has the face";
  }
  EXPECT_EQ([NSFont afx_systemFontOfSize:12.0 weight:AFXFontWeightThin], nil);
}

TEST(SystemFontWithWeightIfAvailable, HasTheWeightOnANewToolkit) {
  ToolkitVersion version(sNewToolkit);
  NSFont *bold = [NSFont afx_systemFontOfSize:12.0 weightIfAvailable:AFXFontWeightBold];
  EXPECT_TRUE([bold isEqual:[NSFont systemFontOfSize:12.0 weight:NSFontWeightBold]]);
  EXPECT_FALSE([bold isEqual:[NSFont systemFontOfSize:12.0 weight:NSFontWeightRegular]]);
}

TEST(SystemFontWithWeightIfAvailable, IgnoresTheWeightOnAnOldToolkit) {
  ToolkitVersion version(sOldToolkit);
  NSFont *font = [NSFont afx_systemFontOfSize:12.0 weightIfAvailable:AFXFontWeightBlack];
  EXPECT_TRUE([font isEqual:[NSFont systemFontOfSize:12.0]]);
  EXPECT_FALSE([font isEqual:[NSFont systemFontOfSize:12.0 weight:NSFontWeightBlack]]);
}

TEST(SystemFonts, AskTheClassThatWasAskedAndTakeTheFontFromNSFont) {
  MethodSwap swap(NamedFont(), FontWithName);
  sFontWithName = &swap;
  Taken();
  sKnowsWeights = YES;
  EXPECT_TRUE([[OtherFont afx_systemFontOfSize:12.0 weight:AFXFontWeightThin]
      isEqual:[NSFont systemFontOfSize:12.0 weight:NSFontWeightBlack]]);
  EXPECT_EQ(Taken(), (std::vector<std::string>{"knows", "weight 1"}));
  EXPECT_TRUE([[OtherFont afx_systemFontOfSize:12.0 weightIfAvailable:AFXFontWeightThin]
      isEqual:[NSFont systemFontOfSize:12.0 weight:NSFontWeightBlack]]);
  EXPECT_EQ(Taken(), (std::vector<std::string>{"weightIfAvailable: 1", "knows", "weight 1"}));
  sKnowsWeights = NO;
  [OtherFont afx_systemFontOfSize:12.0 weight:AFXFontWeightThin];
  EXPECT_EQ(Taken(), (std::vector<std::string>{"knows", "face 1",
                                               "NSFont fontWithName:OtherFace size:12.000000"}));
  EXPECT_TRUE([[OtherFont afx_systemFontOfSize:12.0 weightIfAvailable:AFXFontWeightThin]
      isEqual:[NSFont systemFontOfSize:12.0]]);
  EXPECT_EQ(Taken(), (std::vector<std::string>{"weightIfAvailable: 1", "knows"}));
}

TEST(MonospacedFont, IsTheFaceOfTheWeightWhereItIsInstalled) {
  MethodSwap named(NamedFont(), FontWithName);
  sFontWithName = &named;
  MethodSwap installed(class_getInstanceMethod(NSFontManager.class, @selector(availableFonts)),
                       InstalledFonts);
  sInstalled = @[ @"RobotoMono-Regular", @"RobotoMono-Medium", @"RobotoMono-Bold" ];
  for (NSUInteger weight = 0; weight < 12; ++weight) {
    const std::string face = weight == 3   ? "RobotoMono-Regular"
                             : weight == 6 ? "RobotoMono-Bold"
                                           : "RobotoMono-Medium";
    Taken();
    NSFont *font = [OtherFont afx_robotoMonoFontOfSize:13.0 weight:(AFXFontWeight)weight];
    EXPECT_EQ(font, sNamedFont);
    EXPECT_EQ(Taken(), std::vector<std::string>{"NSFont fontWithName:" + face + " size:13.000000"});
  }
}

TEST(MonospacedFont, IsLookedForByItsExactName) {
  ToolkitVersion version(sNewToolkit);
  MethodSwap named(NamedFont(), FontWithName);
  sFontWithName = &named;
  MethodSwap installed(class_getInstanceMethod(NSFontManager.class, @selector(availableFonts)),
                       InstalledFonts);
  sInstalled = @[ @"RobotoMono", @"robotomono-regular", @"RobotoMono-RegularItalic" ];
  Taken();
  EXPECT_TRUE([[NSFont afx_robotoMonoFontOfSize:13.0 weight:AFXFontWeightRegular]
      isEqual:[NSFont systemFontOfSize:13.0 weight:NSFontWeightRegular]]);
  EXPECT_EQ(Taken(), std::vector<std::string>{});
}

TEST(MonospacedFont, FallsBackToTheSystemFontOfTheGivenWeight) {
  MethodSwap installed(class_getInstanceMethod(NSFontManager.class, @selector(availableFonts)),
                       InstalledFonts);
  sInstalled = @[];
  {
    ToolkitVersion version(sNewToolkit);
    EXPECT_TRUE([[NSFont afx_robotoMonoFontOfSize:13.0 weight:AFXFontWeightUltraLight]
        isEqual:[NSFont systemFontOfSize:13.0 weight:NSFontWeightUltraLight]]);
  }
  {
    ToolkitVersion version(sOldToolkit);
    EXPECT_TRUE([[NSFont afx_robotoMonoFontOfSize:13.0 weight:AFXFontWeightUltraLight]
        isEqual:[NSFont systemFontOfSize:13.0]]);
  }
  // Not by way of the class that was asked.
  Taken();
  [OtherFont afx_robotoMonoFontOfSize:13.0 weight:AFXFontWeightUltraLight];
  EXPECT_EQ(Taken(), std::vector<std::string>{});
}
