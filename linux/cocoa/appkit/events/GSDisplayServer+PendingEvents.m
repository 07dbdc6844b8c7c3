// Wakes the run loop for X events that are read just before it blocks. GNUstep queues them, but its
// run loop blocks all the same until the next one comes: the mouse-up of a click was handled only
// when the mouse moved again.

#import <AppKit/AppKit.h>
#import <GNUstepGUI/GSDisplayServer.h>
#include <dispatch/dispatch.h>

#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

@interface GSDisplayServer (PlatformPendingEvents)
- (BOOL)runLoopShouldBlock:(BOOL *)trigger;
@end

typedef BOOL (*ShouldBlockMethod)(GSDisplayServer *, SEL, BOOL *);

static ShouldBlockMethod sShouldBlock;

/// The run loop asks this before it blocks. GNUstep asks the X connection once only, so an event
/// that comes between two calls would be queued without a wake-up.
static BOOL ShouldBlock(GSDisplayServer *server, SEL selector, BOOL *trigger) {
  const BOOL shouldBlock = sShouldBlock(server, selector, trigger);
  if (!shouldBlock) {
    dispatch_async(dispatch_get_main_queue(), ^{
                   });
  }
  return shouldBlock;
}

static void Install(void) {
  GSDisplayServer *server = GSCurrentServer();
  if (![server respondsToSelector:@selector(runLoopShouldBlock:)]) {
    return;
  }
  sShouldBlock = (ShouldBlockMethod)PlatformReplaceMethod(
      [server class], @selector(runLoopShouldBlock:), (PlatformFunction)ShouldBlock);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
