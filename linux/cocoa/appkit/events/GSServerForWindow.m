// Which display server a window belongs to. GNUstep notes it for every window that it ever makes,
// hidden ones for single images included, and never forgets it: some 400 bytes for each question to
// the customer. There is one server here, so nothing has to be noted.

#import <AppKit/NSWindow.h>
#import <GNUstepGUI/GSDisplayServer.h>

#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

static BOOL sIsAsked;
static void (*sNote)(id, SEL, int);

/// Takes the place of GNUstep's function of this name, which looks the window up.
GSDisplayServer *GSServerForWindow(NSWindow *window) {
  (void)window;
  sIsAsked = YES;
  return GSCurrentServer();
}

/// Were GNUstep's function the one that is called, its notes would be needed.
static void Note(id server, SEL selector, int number) {
  if (!sIsAsked) {
    sNote(server, selector, number);
  }
}

static void Install(void) {
  sNote = (void (*)(id, SEL, int))PlatformReplaceMethod(
      [GSDisplayServer class], @selector(_setWindowOwnedByServer:), (PlatformFunction)Note);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
