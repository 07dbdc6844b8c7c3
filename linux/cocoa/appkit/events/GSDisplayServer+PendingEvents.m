// Events of the X server that are read just when the run loop is about to wait. GNUstep hands them
// out, but its run loop then waits on although something has happened, until the next event: the
// end of a click was heard only when the mouse moved again. So the loop gets a descriptor that is
// readable then.

#import <AppKit/AppKit.h>
#import <GNUstepGUI/GSDisplayServer.h>
#include <sys/eventfd.h>
#include <unistd.h>

#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

@interface GSDisplayServer (PlatformPendingEvents)
- (BOOL)runLoopShouldBlock:(BOOL *)trigger;
@end

@interface PlatformPendingEvents : NSObject <RunLoopEvents>
@end

typedef BOOL (*ShouldBlockMethod)(GSDisplayServer *, SEL, BOOL *);

static ShouldBlockMethod sShouldBlock;
static int sDescriptor = -1;

/// The run loop asks this before each wait. The server looks once only: what came between two looks
/// would be handed out without a wake-up.
static BOOL ShouldBlock(GSDisplayServer *server, SEL selector, BOOL *trigger) {
  const BOOL shouldBlock = sShouldBlock(server, selector, trigger);
  if (!shouldBlock) {
    uint64_t one = 1;
    (void)!write(sDescriptor, &one, sizeof(one));
  }
  return shouldBlock;
}

static void Install(void) {
  GSDisplayServer *server = GSCurrentServer();
  if (![server respondsToSelector:@selector(runLoopShouldBlock:)]) return;
  sDescriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (sDescriptor < 0) return;
  NSString *const modes[] = {NSDefaultRunLoopMode, NSModalPanelRunLoopMode,
                             NSEventTrackingRunLoopMode};
  id watcher = [[PlatformPendingEvents alloc] init];
  for (size_t i = 0; i < sizeof(modes) / sizeof(modes[0]); i++) {
    [[NSRunLoop currentRunLoop] addEvent:(void *)(intptr_t)sDescriptor
                                    type:ET_RDESC
                                 watcher:watcher
                                 forMode:modes[i]];
  }
  sShouldBlock = (ShouldBlockMethod)PlatformReplaceMethod(
      [server class], @selector(runLoopShouldBlock:), (PlatformFunction)ShouldBlock);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }

@implementation PlatformPendingEvents

- (void)receivedEvent:(void *)data
                 type:(RunLoopEventType)type
                extra:(void *)extra
              forMode:(NSString *)mode {
  uint64_t count;
  (void)!read(sDescriptor, &count, sizeof(count));
}

@end
