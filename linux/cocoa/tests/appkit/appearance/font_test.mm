#include <CocoaTesting/LookTest.h>

using Fonts = look::LookTest;

TEST_F(Fonts, WeightsAreApples) {
  EXPECT_DOUBLE_EQ(NSFontWeightUltraLight, -0.8);
  EXPECT_DOUBLE_EQ(NSFontWeightThin, -0.6);
  EXPECT_DOUBLE_EQ(NSFontWeightLight, -0.4);
  EXPECT_DOUBLE_EQ(NSFontWeightRegular, 0);
  EXPECT_DOUBLE_EQ(NSFontWeightMedium, 0.23);
  EXPECT_DOUBLE_EQ(NSFontWeightSemibold, 0.3);
  EXPECT_DOUBLE_EQ(NSFontWeightBold, 0.4);
  EXPECT_DOUBLE_EQ(NSFontWeightHeavy, 0.56);
  EXPECT_DOUBLE_EQ(NSFontWeightBlack, 0.62);
}

TEST_F(Fonts, EachWeightHasAFaceOfItsOwn) {
  const struct {
    CGFloat weight;
    const char *name;
  } faces[] = {
      {NSFontWeightUltraLight, "Inter-Thin"}, {NSFontWeightThin, "Inter-ExtraLight"},
      {NSFontWeightLight, "Inter-Light"},     {NSFontWeightRegular, "Inter-Regular"},
      {NSFontWeightMedium, "Inter-Medium"},   {NSFontWeightSemibold, "Inter-SemiBold"},
      {NSFontWeightBold, "Inter-Bold"},       {NSFontWeightHeavy, "Inter-ExtraBold"},
      {NSFontWeightBlack, "Inter-Black"},
  };
  CGFloat before = 0;
  for (const auto &face : faces) {
    NSFont *font = [NSFont systemFontOfSize:13 weight:face.weight];
    EXPECT_STREQ([[font fontName] UTF8String], face.name);
    EXPECT_EQ([font pointSize], 13);
    CGFloat width =
        [@"Let us stay in touch" sizeWithAttributes:@{NSFontAttributeName : font}].width;
    EXPECT_GT(width, before) << face.name;
    before = width;
  }
}

TEST_F(Fonts, WeightBetweenTwoGetsTheNearestFace) {
  EXPECT_STREQ([[[NSFont systemFontOfSize:13 weight:0.1] fontName] UTF8String], "Inter-Regular");
  EXPECT_STREQ([[[NSFont systemFontOfSize:13 weight:9] fontName] UTF8String], "Inter-Black");
  EXPECT_STREQ([[[NSFont systemFontOfSize:13 weight:-9] fontName] UTF8String], "Inter-Thin");
}

TEST_F(Fonts, LargeSizesUseTheDisplayFace) {
  EXPECT_STREQ([[[NSFont systemFontOfSize:32 weight:NSFontWeightThin] fontName] UTF8String],
               "InterDisplay-ExtraLight");
  EXPECT_STREQ([[[NSFont systemFontOfSize:19 weight:NSFontWeightThin] fontName] UTF8String],
               "Inter-ExtraLight");
}

TEST_F(Fonts, OrdinaryControlsUseItToo) {
  EXPECT_STREQ([[[NSFont systemFontOfSize:11] fontName] UTF8String], "Inter-Regular");
  EXPECT_STREQ([[[NSFont boldSystemFontOfSize:11] fontName] UTF8String], "Inter-Bold");
  EXPECT_EQ([NSFont systemFontSize], 13);
  EXPECT_EQ([[NSFont systemFontOfSize:0] pointSize], 13);
  NSTextField *field = [[[NSTextField alloc] initWithFrame:NSMakeRect(0, 0, 9, 9)] autorelease];
  EXPECT_STREQ([[[field font] fontName] UTF8String], "Inter-Regular");
}

TEST_F(Fonts, NothingIsWrittenToTheUsersDefaults) {
  NSUserDefaults *defaults = [NSUserDefaults standardUserDefaults];
  NSString *own = [[NSProcessInfo processInfo] processName];
  for (NSString *domain in @[ own, NSGlobalDomain ]) {
    for (NSString *key in @[ @"NSFont", @"NSFontSize", @"GSTheme", @"GSFontHinting" ]) {
      EXPECT_EQ([[defaults persistentDomainForName:domain] objectForKey:key], nil);
    }
  }
}
