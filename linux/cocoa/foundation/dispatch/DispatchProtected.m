#include <Block.h>
#import <Foundation/NSAutoreleasePool.h>
#import <Foundation/NSException.h>
#import <Foundation/NSString.h>
#include <stdio.h>
#include <stdlib.h>

#include "DispatchCallout.h"

// GNUstep's own handler would leave through `exit`, and AppKit's would put up a panel, on whatever
// thread this is.
static _Noreturn void Terminate(NSException *exception) {
  fprintf(stderr, "*** Terminating app due to uncaught exception '%s', reason: '%s'\n",
          [[exception name] UTF8String], [[exception reason] UTF8String]);
  abort();
}

void DispatchProtected(dispatch_function_t function, void *context, bool withPool) {
  NSAutoreleasePool *pool = withPool ? [NSAutoreleasePool new] : nil;
  @try {
    function(context);
  } @catch (NSException *exception) {
    Terminate(exception);
  }
  [pool release];
}

void DispatchCallBlock(void *context) { ((dispatch_block_t)context)(); }

void DispatchCallAndReleaseBlock(void *context) {
  dispatch_block_t block = context;
  block();
  Block_release(block);
}
