#import "drawing/WindowOutline.h"

#import <AppKit/AppKit.h>
#import <GNUstepGUI/GSDisplayServer.h>
#include <X11/Xlib.h>
#include <X11/extensions/shape.h>
#include <math.h>
#include <stdio.h>

#include "drawing/RoundedOutline.h"
#import "runtime/AssociatedObjects.h"

// What is cut at present, as text; nothing is kept for a window that is whole.
static const char sOutlineKey = 0;

static BOOL CompositorRuns(Display *display) {
  char name[32];
  snprintf(name, sizeof(name), "_NET_WM_CM_S%d", DefaultScreen(display));
  return XGetSelectionOwner(display, XInternAtom(display, name, False)) != None;
}

BOOL PlatformUpdateWindowOutline(NSView *view, CGFloat radius) {
  NSWindow *window = [view window];
  if (!window || [window contentView] != view || [window isOpaque]) {
    return NO;
  }
  NSSize size = [window frame].size;
  if (!NSEqualSizes([view bounds].size, size)) {
    return NO;
  }

  GSDisplayServer *server = GSServerForWindow(window);
  Display *display = static_cast<Display *>([server serverDevice]);
  Window ident = reinterpret_cast<Window>([server windowDevice:(int)[window windowNumber]]);
  if (!display || !ident) {
    return NO;
  }

  BOOL cut = radius > 0 && !CompositorRuns(display);
  NSString *before = objc_getAssociatedObject(window, &sOutlineKey);
  NSString *after =
      cut ? [NSString stringWithFormat:@"%g %g %g", size.width, size.height, radius] : nil;
  if (before == after || [before isEqual:after]) {
    return cut;
  }
  objc_setAssociatedObject(window, &sOutlineKey, after, OBJC_ASSOCIATION_RETAIN_NONATOMIC);

  if (!cut) {
    XShapeCombineMask(display, ident, ShapeBounding, 0, 0, None, ShapeSet);
    return NO;
  }
  std::vector<XRectangle> rectangles;
  for (const platform::PixelRectangle &part :
       platform::RoundedOutline((int)lround(size.width), (int)lround(size.height), radius)) {
    rectangles.push_back(
        {(short)part.x, (short)part.y, (unsigned short)part.width, (unsigned short)part.height});
  }
  XShapeCombineRectangles(display, ident, ShapeBounding, 0, 0, rectangles.data(),
                          (int)rectangles.size(), ShapeSet, YXBanded);
  return YES;
}
