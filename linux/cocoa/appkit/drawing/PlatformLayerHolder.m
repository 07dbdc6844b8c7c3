#import "drawing/PlatformLayerHolder.h"

@implementation PlatformLayerHolder

- (instancetype)initWithLayer:(CALayer *)layer view:(NSView *)view {
  self = [super init];
  if (!self) {
    return nil;
  }
  _layer = [layer retain];
  [_layer platformSetView:view];
  return self;
}

- (void)dealloc {
  [_layer platformSetView:nil];
  [_layer release];
  [super dealloc];
}

- (CALayer *)layer {
  return _layer;
}

@end
