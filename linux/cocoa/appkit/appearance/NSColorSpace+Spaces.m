#import <AppKit/NSColorSpaces.h>

@interface NSColorSpace (ToolkitPrivate)
- (id)_initWithColorSpaceModel:(NSColorSpaceModel)model;
@end

@implementation NSColorSpace (PlatformSpaces)

+ (NSColorSpace *)sRGBColorSpace {
  static NSColorSpace *space;
  @synchronized([NSColorSpace class]) {
    if (!space) {
      space = [[NSColorSpace alloc] _initWithColorSpaceModel:NSRGBColorSpaceModel];
    }
  }
  return space;
}

- (CGColorSpaceRef)CGColorSpace {
  return (CGColorSpaceRef)self;
}

@end
