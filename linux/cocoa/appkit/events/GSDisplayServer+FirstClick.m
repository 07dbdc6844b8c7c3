// GNUstep prepares the mouse while it reads the first click, and asks the notification daemon for
// changed settings then, which it may have to start. While it waits for the answer it reads on: a
// quick release is taken for older than its press, and the click is lost. So the mouse is prepared
// before there is a window to click, and without the daemon: settings hold from the start of the
// application.

#import <AppKit/AppKit.h>
#import <GNUstepGUI/GSDisplayServer.h>

#import "runtime/NSApplication+Launch.h"

@interface GSDisplayServer (PlatformFirstClick)
- (void)mouseOptionsChanged:(NSNotification *)notification;
@end

static void Install(void) {
  GSDisplayServer *server = GSCurrentServer();
  if ([server respondsToSelector:@selector(mouseOptionsChanged:)]) {
    [server mouseOptionsChanged:nil];
  }
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
