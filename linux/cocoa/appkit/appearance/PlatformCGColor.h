// The object behind a CGColorRef.

#import <AppKit/NSColorSpace.h>
#include <CoreGraphics/CGColor.h>

/// No space has more than four components; alpha comes after them.
enum { PlatformCGColorMaximum = 5 };

@interface PlatformCGColor : NSObject {
 @public
  NSColorSpace *_space;
  size_t _count;
  CGFloat _components[PlatformCGColorMaximum];
}

- (instancetype)initWithSpace:(NSColorSpace *)space components:(const CGFloat *)components;

@end
