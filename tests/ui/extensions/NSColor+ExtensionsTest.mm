#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "method_swap.h"
#include "ui/extensions/AFXColorChannels.h"
#import "ui/extensions/NSColor+Extensions.h"

namespace {

void ExpectComponents(NSColor *color, double red, double green, double blue, double alpha) {
  CGFloat components[4] = {-1, -1, -1, -1};
  ASSERT_EQ(color.numberOfComponents, 4);
  [color getComponents:components];
  EXPECT_EQ(components[0], red);
  EXPECT_EQ(components[1], green);
  EXPECT_EQ(components[2], blue);
  EXPECT_EQ(components[3], alpha);
}

}  // namespace

/// Records which of its methods are called, and makes another color in the end.
@interface OtherColor : NSColor
@end

namespace {

std::vector<std::string> sCalls;

std::vector<std::string> Taken() {
  std::vector<std::string> calls;
  calls.swap(sCalls);
  return calls;
}

std::string Hex(uint32_t value) {
  char digits[9];
  std::snprintf(digits, sizeof digits, "%08X", value);
  return digits;
}

std::string NameOf(NSColorSpace *space) {
  return space == nil                                       ? "none"
         : [space isEqual:NSColorSpace.sRGBColorSpace]      ? "sRGB"
         : [space isEqual:NSColorSpace.deviceRGBColorSpace] ? "device"
                                                            : "another";
}

}  // namespace

@implementation OtherColor

+ (NSColor *)kv_colorWithRGBAHex:(uint32_t)value colorSpace:(NSColorSpace *)colorSpace {
  sCalls.push_back("RGBA " + Hex(value) + " " + NameOf(colorSpace));
  return NSColor.redColor;
}

+ (NSColor *)kv_colorWithRGBHex:(uint32_t)value colorSpace:(NSColorSpace *)colorSpace {
  sCalls.push_back("RGB " + Hex(value) + " " + NameOf(colorSpace));
  return [super kv_colorWithRGBHex:value colorSpace:colorSpace];
}

+ (NSColor *)kv_colorWithSRGBHex:(uint32_t)value {
  sCalls.push_back("sRGB " + Hex(value));
  return [super kv_colorWithSRGBHex:value];
}

@end

/// Makes no colors of its own.
@interface ColorMaker : NSColor
@end

@implementation ColorMaker

+ (NSColor *)colorWithColorSpace:(NSColorSpace *)space
                      components:(const CGFloat *)components
                           count:(NSInteger)count {
  ADD_FAILURE() << "colors come from NSColor itself";
  return [super colorWithColorSpace:space components:components count:count];
}

@end

TEST(ColorsFromHex, GoByWayOfTheClassThatWasAsked) {
  using Calls = std::vector<std::string>;
  Taken();
  NSColor *color = [OtherColor kv_colorWithRGBAHex:0x11223344];
  EXPECT_EQ(Taken(), Calls{"RGBA 11223344 none"});
  EXPECT_TRUE([color isEqual:NSColor.redColor]);
  [OtherColor kv_colorWithRGBHex:0x112233];
  EXPECT_EQ(Taken(), (Calls{"RGB 00112233 none", "RGBA 112233FF none"}));
  [OtherColor kv_colorWithRGBHex:0x44112233];
  EXPECT_EQ(Taken(), (Calls{"RGB 44112233 none", "RGBA 112233FF none"}));
  [OtherColor kv_colorWithSRGBHex:0x112233];
  EXPECT_EQ(Taken(), (Calls{"sRGB 00112233", "RGB 00112233 sRGB", "RGBA 112233FF sRGB"}));
  [OtherColor kv_colorWithDeviceRGBHex:0x112233];
  EXPECT_EQ(Taken(), (Calls{"RGB 00112233 device", "RGBA 112233FF device"}));
  color = [OtherColor kv_colorWithSRGBHexString:@"112233" alpha:0.5];
  EXPECT_EQ(Taken(), (Calls{"sRGB 00112233", "RGB 00112233 sRGB", "RGBA 112233FF sRGB"}));
  EXPECT_EQ(color.alphaComponent, 0.5);
}

TEST(ColorsFromHex, AreMadeByNSColorOfFourComponents) {
  MethodSwap swap(
      class_getClassMethod(NSColor.class, @selector(colorWithColorSpace:components:count:)),
      +[](id self, SEL, NSColorSpace *space, const CGFloat *components, NSInteger count) {
        sCalls.push_back(std::string(class_getName(self)) + " " + NameOf(space) + " " +
                         std::to_string(count));
        EXPECT_EQ(components[0], 0x11 / 255.0);
        EXPECT_EQ(components[3], 0x44 / 255.0);
        return NSColor.redColor;
      });
  Taken();
  EXPECT_TRUE([[NSColor kv_colorWithRGBAHex:0x11223344
                                 colorSpace:NSColorSpace.sRGBColorSpace] isEqual:NSColor.redColor]);
  EXPECT_EQ(Taken(), std::vector<std::string>{"NSColor sRGB 4"});
  EXPECT_TRUE([[ColorMaker kv_colorWithRGBAHex:0x11223344] isEqual:NSColor.redColor]);
  EXPECT_EQ(Taken(), std::vector<std::string>{"NSColor another 4"});
}

TEST(ColorChannels, AreEachByteThroughTwoHundredFiftyFiveExactly) {
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    const auto components = __AFXComponentsOfRGBA((byte << 24) | (byte << 16) | (byte << 8) | byte);
    for (const double component : components) {
      EXPECT_EQ(component, byte / 255.0);
    }
  }
}

TEST(ColorChannels, AreRedGreenBlueAlpha) {
  const auto components = __AFXComponentsOfRGBA(0x01020304);
  EXPECT_EQ(components[0], 1 / 255.0);
  EXPECT_EQ(components[1], 2 / 255.0);
  EXPECT_EQ(components[2], 3 / 255.0);
  EXPECT_EQ(components[3], 4 / 255.0);
}

TEST(ColorFromRGBAHex, IsInTheGenericSpace) {
  NSColor *color = [NSColor kv_colorWithRGBAHex:0xFF000080];
  ExpectComponents(color, 1.0, 0.0, 0.0, 128 / 255.0);
  EXPECT_TRUE([color.colorSpace isEqual:NSColorSpace.genericRGBColorSpace]);
}

TEST(ColorFromRGBHex, DropsTheTopByteAndIsOpaque) {
  ExpectComponents([NSColor kv_colorWithRGBHex:0x12345678], 0x34 / 255.0, 0x56 / 255.0,
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
    ExpectComponents(color, 0x33 / 255.0, 0x66 / 255.0, 0x99 / 255.0, 0.5);
    EXPECT_TRUE([color.colorSpace isEqual:NSColorSpace.sRGBColorSpace]);
  }
}

TEST(ColorFromHexText, IsBlackForWhatDoesNotScan) {
  for (NSString *text in @[ @"#336699", @"", @"grey" ]) {
    ExpectComponents([NSColor kv_colorWithSRGBHexString:text alpha:0.25], 0.0, 0.0, 0.0, 0.25);
  }
}

TEST(ColorFromHexText, DropsTheTopByteOfALongValue) {
  ExpectComponents([NSColor kv_colorWithSRGBHexString:@"FFFFFF80" alpha:0.5], 1.0, 1.0, 128 / 255.0,
                   0.5);
}

TEST(ColorFromHexText, IsWhiteForAValueTooLarge) {
  ExpectComponents([NSColor kv_colorWithSRGBHexString:@"1234567890AB" alpha:1.0], 1.0, 1.0, 1.0,
                   1.0);
}
