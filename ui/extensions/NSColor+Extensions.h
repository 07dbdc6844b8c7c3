#ifndef NSCOLOR_EXTENSIONS_H
#define NSCOLOR_EXTENSIONS_H

#import <AppKit/AppKit.h>

#include <cstdint>

NS_ASSUME_NONNULL_BEGIN

/// Colors from packed hexadecimal values as designers write them. Components are used as given, so
/// the same value is another color on the screen in another space. Nothing here fails. Any thread
/// on which color objects may be made; every color is autoreleased.
@interface NSColor (Extensions)

/// 0xRRGGBBAA in `colorSpace`, or in the generic RGB space (not sRGB) when it is nil.
+ (NSColor *)kv_colorWithRGBAHex:(uint32_t)value colorSpace:(nullable NSColorSpace *)colorSpace;
+ (NSColor *)kv_colorWithRGBAHex:(uint32_t)value;

/// 0xRRGGBB, opaque; the top byte is ignored.
+ (NSColor *)kv_colorWithRGBHex:(uint32_t)value colorSpace:(nullable NSColorSpace *)colorSpace;
+ (NSColor *)kv_colorWithRGBHex:(uint32_t)value;
+ (NSColor *)kv_colorWithSRGBHex:(uint32_t)value;
+ (NSColor *)kv_colorWithDeviceRGBHex:(uint32_t)value;

/// Hexadecimal text as RRGGBB in sRGB, with or without 0x. Text that does not scan, a leading #
/// included, is black.
+ (NSColor *)kv_colorWithSRGBHexString:(NSString *)text alpha:(CGFloat)alpha;

@end

NS_ASSUME_NONNULL_END

#endif
