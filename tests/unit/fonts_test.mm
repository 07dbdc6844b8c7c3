#import <AppKit/PlatformVersions.h>
#include <gtest/gtest.h>

#include "ui/extensions/AFXFontFaces.h"
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

}  // namespace

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

TEST(MonospacedFaces, AreThree) {
  for (unsigned long weight = 0; weight < 12; ++weight) {
    EXPECT_STREQ(AFXMonospacedFace(weight), weight == 3   ? "RobotoMono-Regular"
                                            : weight == 6 ? "RobotoMono-Bold"
                                                          : "RobotoMono-Medium");
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

TEST(SystemFont, IsTheLegacyFaceOrNothingOnAnOldToolkit) {
  ToolkitVersion version(sOldToolkit);
  for (NSUInteger weight = 0; weight < 9; ++weight) {
    NSFont *expected =
        [NSFont fontWithName:[NSFont afx_legacySystemFontNameForWeight:(AFXFontWeight)weight]
                        size:12.0];
    EXPECT_EQ([NSFont afx_systemFontOfSize:12.0 weight:(AFXFontWeight)weight], expected);
  }
}

TEST(SystemFontWithWeightIfAvailable, IgnoresTheWeightOnAnOldToolkit) {
  ToolkitVersion version(sOldToolkit);
  NSFont *font = [NSFont afx_systemFontOfSize:12.0 weightIfAvailable:AFXFontWeightBlack];
  EXPECT_TRUE([font isEqual:[NSFont systemFontOfSize:12.0]]);
}

TEST(MonospacedFont, FallsBackToTheSystemFontOfTheGivenWeight) {
  ASSERT_FALSE([NSFontManager.sharedFontManager.availableFonts containsObject:@"RobotoMono-Medium"])
      << "this test needs a machine without the family";
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
}
