// The layer behind a view, as far as the view system draws one: a filled rectangle with round
// corners.

#ifndef PLATFORM_QUARTZCORE_CALAYER_H
#define PLATFORM_QUARTZCORE_CALAYER_H

#include <CoreGraphics/CGColor.h>
#import <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

@class NSView;

/// A layer belongs to its view, which draws it below everything of its own. Main thread only.
@interface CALayer : NSObject {
  CGColorRef _backgroundColor;
  CGFloat _cornerRadius;
  NSView *_view;
}

+ (instancetype)layer;

/// The fill below the view's own drawing, retained; NULL fills nothing.
@property (nullable) CGColorRef backgroundColor;

/// The radius of the fill's corners in points; 0 at first. The corners of a view that fills a
/// window that is not opaque are the window's corners too.
@property CGFloat cornerRadius;

/// Has the layer's view drawn again.
- (void)setNeedsDisplay;

@end

NS_ASSUME_NONNULL_END

#endif
