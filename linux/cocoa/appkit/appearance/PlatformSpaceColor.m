#import "appearance/PlatformSpaceColor.h"

#import <AppKit/NSGraphics.h>
#import <Foundation/NSCoder.h>
#import <Foundation/NSString.h>
#include <string.h>

@implementation PlatformSpaceColor

- (instancetype)initWithSpace:(NSColorSpace *)space components:(const CGFloat *)components {
  self = [super init];
  if (!self) {
    return nil;
  }
  _space = [space retain];
  memcpy(_components, components, sizeof(_components));
  _components[3] = components[3] < 0 ? 0 : components[3] > 1 ? 1 : components[3];
  _drawn = [[NSColor colorWithCalibratedRed:_components[0]
                                      green:_components[1]
                                       blue:_components[2]
                                      alpha:_components[3]] retain];
  return self;
}

- (void)dealloc {
  [_space release];
  [_drawn release];
  [super dealloc];
}

- (id)copyWithZone:(NSZone *)zone {
  (void)zone;
  return [self retain];
}

- (NSColorSpace *)colorSpace {
  return _space;
}

- (NSString *)colorSpaceName {
  return NSCalibratedRGBColorSpace;
}

- (NSInteger)numberOfComponents {
  return 4;
}

- (void)getComponents:(CGFloat *)components {
  memcpy(components, _components, sizeof(_components));
}

- (CGFloat)redComponent {
  return _components[0];
}

- (CGFloat)greenComponent {
  return _components[1];
}

- (CGFloat)blueComponent {
  return _components[2];
}

- (CGFloat)alphaComponent {
  return _components[3];
}

- (CGFloat)hueComponent {
  return [_drawn hueComponent];
}

- (CGFloat)saturationComponent {
  return [_drawn saturationComponent];
}

- (CGFloat)brightnessComponent {
  return [_drawn brightnessComponent];
}

- (void)getRed:(CGFloat *)red green:(CGFloat *)green blue:(CGFloat *)blue alpha:(CGFloat *)alpha {
  if (red) {
    *red = _components[0];
  }
  if (green) {
    *green = _components[1];
  }
  if (blue) {
    *blue = _components[2];
  }
  if (alpha) {
    *alpha = _components[3];
  }
}

- (void)getHue:(CGFloat *)hue
    saturation:(CGFloat *)saturation
    brightness:(CGFloat *)brightness
         alpha:(CGFloat *)alpha {
  [_drawn getHue:hue saturation:saturation brightness:brightness alpha:alpha];
}

- (NSColor *)colorWithAlphaComponent:(CGFloat)alpha {
  CGFloat components[4];
  memcpy(components, _components, sizeof(components));
  components[3] = alpha;
  return [[[PlatformSpaceColor alloc] initWithSpace:_space components:components] autorelease];
}

- (NSColor *)colorUsingColorSpaceName:(NSString *)name device:(NSDictionary *)device {
  return [_drawn colorUsingColorSpaceName:name device:device];
}

- (NSColor *)colorUsingColorSpace:(NSColorSpace *)space {
  return space == _space ? self : [_drawn colorUsingColorSpace:space];
}

- (void)set {
  [_drawn set];
}

- (void)setFill {
  [_drawn setFill];
}

- (void)setStroke {
  [_drawn setStroke];
}

- (BOOL)isEqual:(id)other {
  if (![other isKindOfClass:[PlatformSpaceColor class]]) {
    return NO;
  }
  PlatformSpaceColor *color = other;
  return color->_space == _space &&
         memcmp(color->_components, _components, sizeof(_components)) == 0;
}

- (NSUInteger)hash {
  return [_drawn hash];
}

- (NSString *)description {
  return [_drawn description];
}

- (Class)classForCoder {
  return [_drawn classForCoder];
}

- (void)encodeWithCoder:(NSCoder *)coder {
  [_drawn encodeWithCoder:coder];
}

@end
