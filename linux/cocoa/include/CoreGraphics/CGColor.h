// Colors and color spaces of CoreGraphics, as far as a layer's background takes them.
//
// Both are Objective-C objects underneath, as Apple's are: sending them `retain` and `release` is
// the same as the functions below. Every function takes NULL and does nothing then.

#ifndef PLATFORM_COREGRAPHICS_CGCOLOR_H
#define PLATFORM_COREGRAPHICS_CGCOLOR_H

#import <Foundation/NSGeometry.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct CGColor *CGColorRef;
typedef struct CGColorSpace *CGColorSpaceRef;

/// A color of these components in this space; the caller owns it. The components are as many as the
/// space has, and alpha after them.
CGColorRef _Nullable CGColorCreate(CGColorSpaceRef _Nullable space,
                                   const CGFloat *_Nullable components);
CGColorRef _Nullable CGColorRetain(CGColorRef _Nullable color);
void CGColorRelease(CGColorRef _Nullable color);

/// Whether both are of one space and have the same components.
bool CGColorEqualToColor(CGColorRef _Nullable color1, CGColorRef _Nullable color2);
/// The number of components, alpha included.
size_t CGColorGetNumberOfComponents(CGColorRef _Nullable color);
/// The components, alpha last; they live as long as the color.
const CGFloat *_Nullable CGColorGetComponents(CGColorRef _Nullable color);
CGFloat CGColorGetAlpha(CGColorRef _Nullable color);
/// The color's space; it lives as long as the color.
CGColorSpaceRef _Nullable CGColorGetColorSpace(CGColorRef _Nullable color);

CGColorSpaceRef _Nullable CGColorSpaceRetain(CGColorSpaceRef _Nullable space);
void CGColorSpaceRelease(CGColorSpaceRef _Nullable space);
/// The number of components without alpha.
size_t CGColorSpaceGetNumberOfComponents(CGColorSpaceRef _Nullable space);

#ifdef __cplusplus
}
#endif

#endif
