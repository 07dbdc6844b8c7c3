// Round corners of a window on the screen.

#import <AppKit/NSView.h>

#ifdef __cplusplus
extern "C" {
#endif

/// To be called whenever a layer-backed view draws itself with corners of this radius. Answers
/// whether the display cuts these corners off.
///
/// Where a compositing manager runs, a window that is not opaque is really transparent where
/// nothing was drawn, and round corners need nothing more than being drawn. Elsewhere transparent
/// pixels are black; there the corners of a content view that fills its window are cut out of the
/// window with the X shape extension, and the view has to be filled up to its edges, or their
/// softened pixels would be mixed with that black.
BOOL PlatformUpdateWindowOutline(NSView *view, CGFloat radius);

#ifdef __cplusplus
}
#endif
