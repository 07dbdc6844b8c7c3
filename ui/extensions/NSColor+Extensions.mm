#import "ui/extensions/NSColor+Extensions.h"

#include "ui/extensions/AFXColorChannels.h"

@implementation NSColor (Extensions)

+ (NSColor *)kv_colorWithRGBAHex:(uint32_t)value colorSpace:(NSColorSpace *)colorSpace {
  const auto channels = __AFXComponentsOfRGBA(value);
  const CGFloat components[] = {channels[0], channels[1], channels[2], channels[3]};
  return [NSColor colorWithColorSpace:colorSpace ?: NSColorSpace.genericRGBColorSpace
                           components:components
                                count:4];
}

+ (NSColor *)kv_colorWithRGBAHex:(uint32_t)value {
  return [self kv_colorWithRGBAHex:value colorSpace:nil];
}

+ (NSColor *)kv_colorWithRGBHex:(uint32_t)value colorSpace:(NSColorSpace *)colorSpace {
  return [self kv_colorWithRGBAHex:__AFXOpaqueRGBA(value) colorSpace:colorSpace];
}

+ (NSColor *)kv_colorWithRGBHex:(uint32_t)value {
  return [self kv_colorWithRGBHex:value colorSpace:nil];
}

+ (NSColor *)kv_colorWithSRGBHex:(uint32_t)value {
  return [self kv_colorWithRGBHex:value colorSpace:NSColorSpace.sRGBColorSpace];
}

+ (NSColor *)kv_colorWithDeviceRGBHex:(uint32_t)value {
  return [self kv_colorWithRGBHex:value colorSpace:NSColorSpace.deviceRGBColorSpace];
}

+ (NSColor *)kv_colorWithSRGBHexString:(NSString *)text alpha:(CGFloat)alpha {
  unsigned int value = 0;
  [[NSScanner scannerWithString:text] scanHexInt:&value];
  return [[self kv_colorWithSRGBHex:value] colorWithAlphaComponent:alpha];
}

@end
