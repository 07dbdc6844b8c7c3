// A window that is movable by its background follows the mouse: GNUstep keeps the property and does
// nothing with it.
//
// The window is moved as the events come and not in a tracking loop, so that the rest of the
// application goes on meanwhile.

#import <AppKit/AppKit.h>

#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

typedef void (*SendEventMethod)(NSApplication *, SEL, NSEvent *);

static SendEventMethod sSendEvent;
static NSWindow *sDragged;  // not retained, only compared with
static NSPoint sHold;       // where the mouse has taken it, from its origin

static BOOL StartsDrag(NSWindow *window, NSEvent *event) {
  if (![window isVisible] || ![window isMovableByWindowBackground]) {
    return NO;
  }
  NSView *frameView = [[window contentView] superview];
  return [[frameView hitTest:[event locationInWindow]] mouseDownCanMoveWindow];
}

static void StartDrag(NSWindow *window, NSEvent *event) {
  if (![window isKeyWindow]) {
    [window makeKeyAndOrderFront:window];
  }
  if (![NSApp isActive]) {
    [NSApp activateIgnoringOtherApps:YES];
  }
  sDragged = window;
  sHold = [event locationInWindow];
}

static void FollowMouse(NSWindow *window) {
  // The pointer's place now: that in the event is relative to a window that may have moved since.
  NSPoint mouse = [NSEvent mouseLocation];
  [window setFrameOrigin:NSMakePoint(mouse.x - sHold.x, mouse.y - sHold.y)];
}

static void SendEvent(NSApplication *application, SEL selector, NSEvent *event) {
  NSWindow *window = [event window];
  switch ([event type]) {
    case NSLeftMouseDown:
      sDragged = nil;
      if (StartsDrag(window, event)) {
        StartDrag(window, event);
        return;
      }
      break;
    case NSLeftMouseDragged:
      if (window == sDragged) {
        FollowMouse(window);
        return;
      }
      break;
    case NSLeftMouseUp:
      if (window == sDragged) {
        sDragged = nil;
        return;
      }
      break;
    default:
      break;
  }
  sSendEvent(application, selector, event);
}

static void Install(void) {
  sSendEvent = (SendEventMethod)PlatformReplaceMethod([NSApplication class], @selector(sendEvent:),
                                                      (PlatformFunction)SendEvent);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
