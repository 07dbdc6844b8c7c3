#include <CocoaTesting/LookTest.h>

using Colors = look::LookTest;

static NSColor *Color(NSColorSpace *space, CGFloat red, CGFloat green, CGFloat blue,
                      CGFloat alpha) {
  CGFloat components[4] = {red, green, blue, alpha};
  return [NSColor colorWithColorSpace:space components:components count:4];
}

TEST_F(Colors, RgbSpacesAreDistinctObjectsAndStayTheSame) {
  NSColorSpace *spaces[] = {[NSColorSpace sRGBColorSpace],
                            [NSColorSpace genericRGBColorSpace],
                            [NSColorSpace deviceRGBColorSpace]};
  for (int i = 0; i < 3; i++) {
    for (int j = 0; j < i; j++) {
      EXPECT_NE(spaces[i], spaces[j]);
    }
  }
  EXPECT_EQ([NSColorSpace sRGBColorSpace], spaces[0]);
  EXPECT_EQ([spaces[0] numberOfColorComponents], 3);
}

TEST_F(Colors, KeepsEveryComponentExactlyAndItsSpace) {
  for (NSColorSpace *space in @[
         [NSColorSpace sRGBColorSpace], [NSColorSpace genericRGBColorSpace],
         [NSColorSpace deviceRGBColorSpace]
       ]) {
    for (int n = 0; n < 256; n++) {
      NSColor *color = Color(space, n / 255.0, (255 - n) / 255.0, n / 255.0, n / 255.0);
      ASSERT_EQ([color redComponent], n / 255.0);
      ASSERT_EQ([color greenComponent], (255 - n) / 255.0);
      ASSERT_EQ([color blueComponent], n / 255.0);
      ASSERT_EQ([color alphaComponent], n / 255.0);
      ASSERT_EQ([color colorSpace], space);
      CGFloat components[4];
      [color getComponents:components];
      ASSERT_EQ([color numberOfComponents], 4);
      ASSERT_EQ(components[1], (255 - n) / 255.0);
    }
  }
}

TEST_F(Colors, AnotherAlphaLeavesSpaceAndComponents) {
  NSColor *color =
      [Color([NSColorSpace sRGBColorSpace], 0.1, 0.2, 0.3, 1) colorWithAlphaComponent:0.5];
  EXPECT_EQ([color colorSpace], [NSColorSpace sRGBColorSpace]);
  EXPECT_EQ([color redComponent], 0.1);
  EXPECT_EQ([color alphaComponent], 0.5);
}

TEST_F(Colors, NamedConstructorsAreInSrgb) {
  NSColor *color = [NSColor colorWithRed:0.25 green:0.5 blue:0.75 alpha:1];
  EXPECT_EQ([color colorSpace], [NSColorSpace sRGBColorSpace]);
  EXPECT_TRUE([color isEqual:[NSColor colorWithSRGBRed:0.25 green:0.5 blue:0.75 alpha:1]]);
  EXPECT_EQ([[NSColor colorWithRed:1.5 green:0 blue:0 alpha:1] redComponent], 1.5);
  EXPECT_EQ([[NSColor colorWithSRGBRed:1.5 green:0 blue:0 alpha:1] redComponent], 1.0);
}

TEST_F(Colors, EqualOnlyWithinOneSpace) {
  NSColor *srgb = Color([NSColorSpace sRGBColorSpace], 0.1, 0.2, 0.3, 1);
  EXPECT_TRUE([srgb isEqual:Color([NSColorSpace sRGBColorSpace], 0.1, 0.2, 0.3, 1)]);
  EXPECT_EQ([srgb hash], [Color([NSColorSpace sRGBColorSpace], 0.1, 0.2, 0.3, 1) hash]);
  EXPECT_FALSE([srgb isEqual:Color([NSColorSpace genericRGBColorSpace], 0.1, 0.2, 0.3, 1)]);
  EXPECT_FALSE([srgb isEqual:Color([NSColorSpace sRGBColorSpace], 0.1, 0.2, 0.3, 0.9)]);
}

TEST_F(Colors, OtherModelsStayWhatTheyWere) {
  CGFloat gray[2] = {0.4, 0.6};
  NSColor *color = [NSColor colorWithColorSpace:[NSColorSpace genericGrayColorSpace]
                                     components:gray
                                          count:2];
  EXPECT_EQ([color whiteComponent], 0.4);
  EXPECT_EQ([color alphaComponent], 0.6);
  CGFloat ink[5] = {0.1, 0.2, 0.3, 0.4, 1};
  color = [NSColor colorWithColorSpace:[NSColorSpace deviceCMYKColorSpace] components:ink count:5];
  EXPECT_EQ([color magentaComponent], 0.2);
  EXPECT_EQ([NSColor colorWithColorSpace:[NSColorSpace sRGBColorSpace] components:gray count:2],
            nil);
}

TEST_F(Colors, CoreGraphicsColorHasTheSameComponentsAndSpace) {
  NSColor *color = Color([NSColorSpace sRGBColorSpace], 1 / 255.0, 2 / 255.0, 3 / 255.0, 0.5);
  CGColorRef converted = [color CGColor];
  ASSERT_EQ(CGColorGetNumberOfComponents(converted), 4u);
  EXPECT_EQ(CGColorGetComponents(converted)[0], 1 / 255.0);
  EXPECT_EQ(CGColorGetComponents(converted)[2], 3 / 255.0);
  EXPECT_EQ(CGColorGetAlpha(converted), 0.5);
  EXPECT_EQ(CGColorGetColorSpace(converted), [[NSColorSpace sRGBColorSpace] CGColorSpace]);
  EXPECT_TRUE([[NSColor colorWithCGColor:converted] isEqual:color]);
  EXPECT_TRUE(CGColorEqualToColor(converted, [color CGColor]));

  EXPECT_EQ(CGColorGetNumberOfComponents([[NSColor whiteColor] CGColor]), 2u);
  EXPECT_EQ(CGColorGetNumberOfComponents([[NSColor controlBackgroundColor] CGColor]), 4u);
}

TEST_F(Colors, CoreGraphicsColorIsReferenceCounted) {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  CGColorRef kept = CGColorRetain([[NSColor colorWithRed:0.5 green:0 blue:0 alpha:1] CGColor]);
  [pool release];
  EXPECT_EQ([(id)kept retainCount], 1u);
  EXPECT_EQ(CGColorGetComponents(kept)[0], 0.5);
  CGColorRelease(kept);
  EXPECT_EQ(CGColorRetain(nullptr), nullptr);
  CGColorRelease(nullptr);
  EXPECT_EQ(CGColorGetComponents(nullptr), nullptr);
}
