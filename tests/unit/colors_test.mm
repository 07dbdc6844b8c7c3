#include <gtest/gtest.h>

#include "ui/extensions/AFXColorChannels.h"
#import "ui/extensions/NSColor+Extensions.h"

namespace {

void expectComponents(NSColor *color, double red, double green, double blue, double alpha) {
  CGFloat components[4] = {-1, -1, -1, -1};
  ASSERT_EQ(color.numberOfComponents, 4);
  [color getComponents:components];
  EXPECT_EQ(components[0], red);
  EXPECT_EQ(components[1], green);
  EXPECT_EQ(components[2], blue);
  EXPECT_EQ(components[3], alpha);
}

}  // namespace

TEST(ColorChannels, AreEachByteThroughTwoHundredFiftyFiveExactly) {
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    const auto components = AFXComponentsOfRGBA((byte << 24) | (byte << 16) | (byte << 8) | byte);
    for (const double component : components) {
      EXPECT_EQ(component, byte / 255.0);
    }
  }
}

TEST(ColorChannels, AreRedGreenBlueAlpha) {
  const auto components = AFXComponentsOfRGBA(0x01020304);
  EXPECT_EQ(components[0], 1 / 255.0);
  EXPECT_EQ(components[1], 2 / 255.0);
  EXPECT_EQ(components[2], 3 / 255.0);
  EXPECT_EQ(components[3], 4 / 255.0);
}

TEST(ColorFromRGBAHex, IsInTheGenericSpace) {
  NSColor *color = [NSColor kv_colorWithRGBAHex:0xFF000080];
  expectComponents(color, 1.0, 0.0, 0.0, 128 / 255.0);
  EXPECT_TRUE([color.colorSpace isEqual:NSColorSpace.genericRGBColorSpace]);
}

TEST(ColorFromRGBHex, DropsTheTopByteAndIsOpaque) {
  expectComponents([NSColor kv_colorWithRGBHex:0x12345678], 0x34 / 255.0, 0x56 / 255.0,
                   0x78 / 255.0, 1.0);
}

TEST(ColorFromHex, IsInTheSpaceThatTheMethodNames) {
  EXPECT_TRUE(
      [[NSColor kv_colorWithRGBHex:0].colorSpace isEqual:NSColorSpace.genericRGBColorSpace]);
  EXPECT_TRUE([[NSColor kv_colorWithSRGBHex:0].colorSpace isEqual:NSColorSpace.sRGBColorSpace]);
  EXPECT_TRUE(
      [[NSColor kv_colorWithDeviceRGBHex:0].colorSpace isEqual:NSColorSpace.deviceRGBColorSpace]);
  EXPECT_FALSE([NSColorSpace.sRGBColorSpace isEqual:NSColorSpace.genericRGBColorSpace]);
}

TEST(ColorFromHexText, TakesDigitsWithAndWithoutPrefix) {
  for (NSString *text in @[ @"336699", @"0x336699", @"0X336699", @" \t336699", @"336699 rest" ]) {
    NSColor *color = [NSColor kv_colorWithSRGBHexString:text alpha:0.5];
    expectComponents(color, 0x33 / 255.0, 0x66 / 255.0, 0x99 / 255.0, 0.5);
    EXPECT_TRUE([color.colorSpace isEqual:NSColorSpace.sRGBColorSpace]);
  }
}

TEST(ColorFromHexText, IsBlackForWhatDoesNotScan) {
  for (NSString *text in @[ @"#336699", @"", @"grey" ]) {
    expectComponents([NSColor kv_colorWithSRGBHexString:text alpha:0.25], 0.0, 0.0, 0.0, 0.25);
  }
}

TEST(ColorFromHexText, DropsTheTopByteOfALongValue) {
  expectComponents([NSColor kv_colorWithSRGBHexString:@"FFFFFF80" alpha:0.5], 1.0, 1.0, 128 / 255.0,
                   0.5);
}

TEST(ColorFromHexText, IsWhiteForAValueTooLarge) {
  expectComponents([NSColor kv_colorWithSRGBHexString:@"1234567890AB" alpha:1.0], 1.0, 1.0, 1.0,
                   1.0);
}
