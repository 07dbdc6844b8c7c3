// A window that becomes key gets the keyboard of the X server. GNUstep asks for it with the time of
// the last event it has seen, and the server ignores that where the keyboard has changed hands
// since: when a window is hidden and another shown a moment later, that one would not hear a key.

#import <AppKit/AppKit.h>
#import <GNUstepGUI/GSDisplayServer.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>

#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

@interface GSDisplayServer (PlatformKeyboardFocus)
- (void)setLastTime:(Time)time;
@end

typedef void (*SetInputFocusMethod)(GSDisplayServer *, SEL, int);

static SetInputFocusMethod sSetInputFocus;

/// The server tells its time only in events: this makes it send one.
static Time ServerTime(Display *display) {
  static Window window;
  if (window == None) {
    window = XCreateSimpleWindow(display, DefaultRootWindow(display), -1, -1, 1, 1, 0, 0, 0);
    XSelectInput(display, window, PropertyChangeMask);
  }
  XChangeProperty(display, window, XA_WM_NAME, XA_STRING, 8, PropModeAppend, NULL, 0);
  XEvent event;
  XWindowEvent(display, window, PropertyChangeMask, &event);
  return event.xproperty.time;
}

static void SetInputFocus(GSDisplayServer *server, SEL selector, int window) {
  [server setLastTime:ServerTime([server serverDevice])];
  sSetInputFocus(server, selector, window);
}

static void Install(void) {
  GSDisplayServer *server = GSCurrentServer();
  if (![server respondsToSelector:@selector(setLastTime:)]) {
    return;
  }
  sSetInputFocus = (SetInputFocusMethod)PlatformReplaceMethod(
      [server class], @selector(setinputfocus:), (PlatformFunction)SetInputFocus);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
