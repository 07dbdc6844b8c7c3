// exit() lets no autorelease pool go, as on a Mac. GNUstep empties those of the thread that ends the
// process, but after it has taken the tables away that their objects are in: a message port raises
// then, and an application puts up a panel about it that waits for a click. The innermost pool is
// emptied all the same: GNUstep raises without end where that is kept from it.

#import <Foundation/NSAutoreleasePool.h>
#import <Foundation/NSThread.h>
#import <GNUstepBase/NSObject+GNUstepBase.h>
#include <objc/runtime.h>

/// What GNUstep calls at the end of each thread, and of the process.
@interface NSAutoreleasePool (GNUstep)
+ (void)_endThread:(NSThread *)thread;
@end

@interface PlatformPoolsAtExit : NSObject
@end

@implementation PlatformPoolsAtExit

+ (void)load {
  [self registerAtExit];
}

/// Sent before GNUstep empties the pools.
+ (void)atExit {
  method_setImplementation(class_getClassMethod([NSAutoreleasePool class], @selector(_endThread:)),
                           [self methodForSelector:@selector(keepPoolsOfThread:)]);
}

+ (void)keepPoolsOfThread:(NSThread *)thread {
}

@end
