// Between a layer and its view.

#ifndef PLATFORM_LAYER_HOLDER_H
#define PLATFORM_LAYER_HOLDER_H

#import <QuartzCore/CALayer.h>

@interface CALayer (PlatformLayerOfView)

/// The view to draw again when the layer changes, not retained; nil when it goes away.
- (void)platformSetView:(NSView *)view;

@end

/// A view's associated object: its layer, which learns when the view is gone.
@interface PlatformLayerHolder : NSObject {
  CALayer *_layer;
}

- (instancetype)initWithLayer:(CALayer *)layer view:(NSView *)view;
- (CALayer *)layer;

@end

#endif
