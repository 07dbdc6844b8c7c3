// exit() lets no autorelease pool go, as on a Mac. GNUstep empties those of the thread that ends the
// process, but after it has taken the tables away that their objects are in: a message port raises
// then, and an application puts up a panel about it that waits for a click.

#import <Foundation/NSAutoreleasePool.h>
#import <Foundation/NSThread.h>
#include <objc/runtime.h>
#include <stdlib.h>

/// What GNUstep calls at the end of each thread, and of the process.
@interface NSAutoreleasePool (GNUstep)
+ (void)_endThread:(NSThread *)thread;
@end

@interface PlatformPoolsAtExit : NSObject
@end

static void KeepPools(void) {
  Method keep = class_getClassMethod([PlatformPoolsAtExit class], @selector(keepPoolsOfThread:));
  Method end = class_getClassMethod([NSAutoreleasePool class], @selector(_endThread:));
  method_setImplementation(end, method_getImplementation(keep));
}

@implementation PlatformPoolsAtExit

+ (void)load {
  atexit(KeepPools);
}

+ (void)keepPoolsOfThread:(NSThread *)thread {
}

@end
