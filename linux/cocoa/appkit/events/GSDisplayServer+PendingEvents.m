// Events of the X server that are read just when the run loop is about to wait. GNUstep hands them
// out, but its run loop then waits on although something has happened, until the next event: the
// end of a click was heard only when the mouse moved again. So the loop is woken then.

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

/// The run loop asks this before each wait. The server looks once only: what came between two looks
/// would be handed out without a wake-up.
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
