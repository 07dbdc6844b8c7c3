// Colors that keep their color space, and their CoreGraphics colors.

#ifndef PLATFORM_APPKIT_NSCOLORSPACES_H
#define PLATFORM_APPKIT_NSCOLORSPACES_H

#import <AppKit/NSColor.h>
#import <AppKit/NSColorSpace.h>
#include <CoreGraphics/CGColor.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSColorSpace (PlatformSpaces)

/// One object, and not that of another space.
+ (NSColorSpace *)sRGBColorSpace;

/// The space itself, not retained.
- (CGColorSpaceRef)CGColorSpace;

@end

@interface NSColor (PlatformSpaces)

/// The color of a CoreGraphics color, with its space and its exact components.
+ (nullable NSColor *)colorWithCGColor:(CGColorRef)color;

@end

NS_ASSUME_NONNULL_END

#endif
