// Layer-backed views.

#ifndef PLATFORM_APPKIT_NSVIEWLAYER_H
#define PLATFORM_APPKIT_NSVIEWLAYER_H

#import <AppKit/NSView.h>
#include <QuartzCore/CALayer.h>

NS_ASSUME_NONNULL_BEGIN

/// Main thread only, as everything of a view.
@interface NSView (PlatformLayer)

/// Whether the view has a layer of its own. Turning it on makes a plain layer unless one was set.
@property BOOL wantsLayer;

/// The view's layer, retained; nil unless the view is layer-backed.
@property (nullable, retain) CALayer *layer;

@end

NS_ASSUME_NONNULL_END

#endif
