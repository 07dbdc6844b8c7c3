#import <AppKit/NSColorSpaces.h>
#import <AppKit/NSGraphics.h>

#import "appearance/PlatformCGColor.h"
#import "appearance/PlatformSpaceColor.h"

static NSColor *SRGBColor(CGFloat red, CGFloat green, CGFloat blue, CGFloat alpha) {
  CGFloat components[4] = {red, green, blue, alpha};
  return [[[PlatformSpaceColor alloc] initWithSpace:[NSColorSpace sRGBColorSpace]
                                         components:components] autorelease];
}

static CGFloat Limited(CGFloat value) { return value < 0 ? 0 : value > 1 ? 1 : value; }

@implementation NSColor (PlatformSpaces)

/// GNUstep has color classes for the generic and the device spaces only, and makes every color
/// of another RGB space one of those.
+ (NSColor *)colorWithColorSpace:(NSColorSpace *)space
                      components:(const CGFloat *)components
                           count:(NSInteger)count {
  BOOL device =
      space == [NSColorSpace deviceRGBColorSpace] || space == [NSColorSpace deviceGrayColorSpace];
  NSColorSpaceModel model = [space colorSpaceModel];
  if (model == NSRGBColorSpaceModel && count == 4) {
    return [[[PlatformSpaceColor alloc] initWithSpace:space components:components] autorelease];
  }
  if (model == NSGrayColorSpaceModel && count == 2) {
    return device ? [NSColor colorWithDeviceWhite:components[0] alpha:components[1]]
                  : [NSColor colorWithCalibratedWhite:components[0] alpha:components[1]];
  }
  if (model == NSCMYKColorSpaceModel && count == 5) {
    return [NSColor colorWithDeviceCyan:components[0]
                                magenta:components[1]
                                 yellow:components[2]
                                  black:components[3]
                                  alpha:components[4]];
  }
  return nil;
}

+ (NSColor *)colorWithSRGBRed:(CGFloat)red
                        green:(CGFloat)green
                         blue:(CGFloat)blue
                        alpha:(CGFloat)alpha {
  return SRGBColor(Limited(red), Limited(green), Limited(blue), alpha);
}

/// Extended sRGB: components beyond 0 … 1 are kept.
+ (NSColor *)colorWithRed:(CGFloat)red
                    green:(CGFloat)green
                     blue:(CGFloat)blue
                    alpha:(CGFloat)alpha {
  return SRGBColor(red, green, blue, alpha);
}

+ (NSColor *)colorWithCGColor:(CGColorRef)color {
  if (!color) {
    return nil;
  }
  return [NSColor colorWithColorSpace:(NSColorSpace *)CGColorGetColorSpace(color)
                           components:CGColorGetComponents(color)
                                count:CGColorGetNumberOfComponents(color)];
}

- (CGColorRef)CGColor {
  NSColor *color = self;
  NSString *name = [self colorSpaceName];
  if ([name isEqualToString:NSPatternColorSpace]) {
    return NULL;
  }
  if ([name isEqualToString:NSNamedColorSpace] || ![self colorSpace]) {
    color = [self colorUsingColorSpaceName:NSCalibratedRGBColorSpace];
  }
  CGFloat components[PlatformCGColorMaximum];
  if (!color || [color numberOfComponents] > PlatformCGColorMaximum) {
    return NULL;
  }
  [color getComponents:components];
  return (CGColorRef)[[[PlatformCGColor alloc] initWithSpace:[color colorSpace]
                                                  components:components] autorelease];
}

@end
