// An RGB color in a space that GNUstep has no color class for.

#import <AppKit/NSColor.h>
#import <AppKit/NSColorSpace.h>

/// Keeps its components and its space; draws as GNUstep's own RGB color of the same components,
/// since nothing here converts between spaces.
@interface PlatformSpaceColor : NSColor {
  NSColorSpace *_space;
  CGFloat _components[4];
  NSColor *_drawn;
}

/// Four components: red, green, blue, alpha. Only alpha is limited to 0 … 1.
- (instancetype)initWithSpace:(NSColorSpace *)space components:(const CGFloat *)components;

@end
