// The system font in nine weights.

#ifndef PLATFORM_APPKIT_NSFONTWEIGHT_H
#define PLATFORM_APPKIT_NSFONTWEIGHT_H

#import <AppKit/NSFont.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSFont (PlatformWeight)

/// The system font of this size in points (0 or less: the standard size) and weight, one of the
/// NSFontWeight constants; another value gets the face of the nearest.
///
/// The system font is Inter, which has nine faces, and from 20 points on its display cut. Where it
/// is not installed every weight is the toolkit's own system font, bold from NSFontWeightSemibold
/// on.
+ (NSFont *)systemFontOfSize:(CGFloat)size weight:(NSFontWeight)weight;

@end

NS_ASSUME_NONNULL_END

#endif
