#import "appearance/PlatformCGColor.h"

#include <string.h>

@implementation PlatformCGColor

- (instancetype)initWithSpace:(NSColorSpace *)space components:(const CGFloat *)components {
  self = [super init];
  if (!self) {
    return nil;
  }
  _space = [space retain];
  _count = [space numberOfColorComponents] + 1;
  if (_count < 2 || _count > PlatformCGColorMaximum) {
    [self release];
    return nil;
  }
  memcpy(_components, components, _count * sizeof(CGFloat));
  return self;
}

- (void)dealloc {
  [_space release];
  [super dealloc];
}

- (BOOL)isEqual:(id)other {
  if (![other isKindOfClass:[PlatformCGColor class]]) {
    return NO;
  }
  PlatformCGColor *color = other;
  return color->_space == _space && color->_count == _count &&
         memcmp(color->_components, _components, _count * sizeof(CGFloat)) == 0;
}

- (NSUInteger)hash {
  return [_space hash];
}

@end

static PlatformCGColor *Object(CGColorRef color) { return (PlatformCGColor *)color; }

CGColorRef CGColorCreate(CGColorSpaceRef space, const CGFloat *components) {
  if (!space || !components) {
    return NULL;
  }
  return (CGColorRef)[[PlatformCGColor alloc] initWithSpace:(NSColorSpace *)space
                                                 components:components];
}

CGColorRef CGColorRetain(CGColorRef color) { return (CGColorRef)[Object(color) retain]; }

void CGColorRelease(CGColorRef color) { [Object(color) release]; }

bool CGColorEqualToColor(CGColorRef color1, CGColorRef color2) {
  return color1 == color2 || [Object(color1) isEqual:Object(color2)];
}

size_t CGColorGetNumberOfComponents(CGColorRef color) { return color ? Object(color)->_count : 0; }

const CGFloat *CGColorGetComponents(CGColorRef color) {
  return color ? Object(color)->_components : NULL;
}

CGFloat CGColorGetAlpha(CGColorRef color) {
  return color ? Object(color)->_components[Object(color)->_count - 1] : 0;
}

CGColorSpaceRef CGColorGetColorSpace(CGColorRef color) {
  return color ? (CGColorSpaceRef)Object(color)->_space : NULL;
}

CGColorSpaceRef CGColorSpaceRetain(CGColorSpaceRef space) {
  return (CGColorSpaceRef)[(NSColorSpace *)space retain];
}

void CGColorSpaceRelease(CGColorSpaceRef space) { [(NSColorSpace *)space release]; }

size_t CGColorSpaceGetNumberOfComponents(CGColorSpaceRef space) {
  return [(NSColorSpace *)space numberOfColorComponents];
}
