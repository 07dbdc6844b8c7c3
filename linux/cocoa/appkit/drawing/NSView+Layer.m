#import <AppKit/AppKit.h>

#import "drawing/WindowOutline.h"
#import "runtime/AssociatedObjects.h"
#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

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

typedef void (*DisplayMethod)(id, SEL, NSRect, NSGraphicsContext *);
typedef void (*LockFocusMethod)(id, SEL, NSGraphicsContext *, NSRect);

static const char sLayerKey;

static DisplayMethod sDisplay;
static LockFocusMethod sLockFocus;

// The view that is about to draw itself. The layer belongs below what `drawRect:` draws, and
// subclasses need not call super there, so the place for it is between taking the focus and
// `drawRect:`.
static NSView *sDrawing;

static void DrawLayer(NSView *view, CALayer *layer) {
  BOOL cut = PlatformUpdateWindowOutline(view, [layer cornerRadius]);
  if (![layer backgroundColor]) {
    return;
  }
  NSColor *color = [NSColor colorWithCGColor:[layer backgroundColor]];
  [color setFill];
  NSRect bounds = [view bounds];
  CGFloat radius = cut ? 0 : [layer cornerRadius];
  radius = MIN(radius, MIN(NSWidth(bounds), NSHeight(bounds)) / 2);
  if (radius > 0) {
    [[NSBezierPath bezierPathWithRoundedRect:bounds xRadius:radius yRadius:radius] fill];
  } else {
    NSRectFillUsingOperation(bounds, NSCompositeSourceOver);
  }
}

static void Display(id self, SEL selector, NSRect rect, NSGraphicsContext *context) {
  NSView *outer = sDrawing;
  sDrawing = [self layer] ? self : nil;
  sDisplay(self, selector, rect, context);
  sDrawing = outer;
}

static void LockFocus(id self, SEL selector, NSGraphicsContext *context, NSRect rect) {
  sLockFocus(self, selector, context, rect);
  if (sDrawing != self) {
    return;
  }
  sDrawing = nil;
  DrawLayer(self, [self layer]);
}

@interface NSView (ToolkitPrivate)
- (void)_lockFocusInContext:(NSGraphicsContext *)context inRect:(NSRect)rect;
@end

static void Install(void) {
  sDisplay = (DisplayMethod)PlatformReplaceMethod(
      [NSView class], @selector(displayRectIgnoringOpacity:inContext:), (PlatformFunction)Display);
  sLockFocus = (LockFocusMethod)PlatformReplaceMethod(
      [NSView class], @selector(_lockFocusInContext:inRect:), (PlatformFunction)LockFocus);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }

@implementation NSView (PlatformLayer)

- (BOOL)wantsLayer {
  return [self layer] != nil;
}

- (void)setWantsLayer:(BOOL)wantsLayer {
  if (wantsLayer == [self wantsLayer]) {
    return;
  }
  [self setLayer:wantsLayer ? [CALayer layer] : nil];
}

- (CALayer *)layer {
  return [(PlatformLayerHolder *)objc_getAssociatedObject(self, &sLayerKey) layer];
}

- (void)setLayer:(CALayer *)layer {
  PlatformLayerHolder *holder = nil;
  // The old holder has to be gone first, for on its way it takes the view from what may be this
  // layer.
  objc_setAssociatedObject(self, &sLayerKey, nil, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
  if (layer) {
    holder = [[[PlatformLayerHolder alloc] initWithLayer:layer view:self] autorelease];
  }
  objc_setAssociatedObject(self, &sLayerKey, holder, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
  [self setNeedsDisplay:YES];
}

@end
