// Which window becomes key or main when that one leaves the screen. GNUstep asks the window manager
// for the order of all windows first, and the caller waits for the answer, although an application
// rarely has more than one other window to choose from.

#import <AppKit/AppKit.h>

#import "../look/MethodReplacement.h"
#import "AtLaunch.h"

@interface NSWindow (ToolkitPrivate)
- (void)_lossOfKeyOrMainWindow;
@end

typedef void (*LossMethod)(id, SEL);

static LossMethod sLoss;

static void Loss(id self, SEL selector) {
  // As in the toolkit: no successor in an application that ends.
  if (![NSApp isRunning]) return;
  NSWindow *successor = nil;
  for (NSWindow *window in [NSApp windows]) {
    if (window == self || ![window isVisible]) continue;
    if (![window canBecomeKeyWindow] && ![window canBecomeMainWindow]) continue;
    if (successor) {
      sLoss(self, selector);
      return;
    }
    successor = window;
  }
  // A menu that is a window takes the keyboard where nothing else does.
  if (!successor && [[NSApp mainMenu] window]) {
    sLoss(self, selector);
    return;
  }
  if ([self isKeyWindow]) {
    [self resignKeyWindow];
    if ([successor canBecomeKeyWindow]) [successor makeKeyWindow];
  }
  if ([self isMainWindow]) {
    [self resignMainWindow];
    if ([successor canBecomeMainWindow]) [successor makeMainWindow];
  }
}

static void Install(void) {
  sLoss = (LossMethod)PlatformReplaceMethod([NSWindow class], @selector(_lossOfKeyOrMainWindow),
                                            (PlatformFunction)Loss);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
