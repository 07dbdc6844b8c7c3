#import <Foundation/NSArray.h>
#import <Foundation/NSRunLoop.h>
#import <Foundation/NSThread.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "DispatchCallout.h"
#import "DispatchQueue.h"
#include "DispatchTrap.h"

/// The main queue. The main run loop watches a descriptor that is readable while blocks wait. (Run
/// loop performers would not do: one that is added by another is not seen before the next event.)
@interface OS_dispatch_queue_main : OS_dispatch_queue <RunLoopEvents> {
  int _descriptor;
  BOOL _draining;  // Of the main thread.
}
@end

@implementation OS_dispatch_queue_main

- (id)init {
  if ((self = [super initWithLabel:"com.apple.main-thread" serial:YES])) {
    _descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (_descriptor < 0) {
      abort();
    }
    if (DispatchIsMainThread()) {
      [self watch];
    } else {
      [self performSelectorOnMainThread:@selector(watch)
                             withObject:nil
                          waitUntilDone:NO
                                  modes:[[self class] modes]];
    }
  }
  return self;
}

/// The common modes, by their texts: the last two belong to AppKit, which need not be loaded.
+ (NSArray *)modes {
  return [NSArray arrayWithObjects:NSDefaultRunLoopMode, @"NSModalPanelRunLoopMode",
                                   @"NSEventTrackingRunLoopMode", nil];
}

- (void)watch {
  NSRunLoop *loop = [NSRunLoop currentRunLoop];
  for (NSString *mode in [[self class] modes]) {
    [loop addEvent:(void *)(intptr_t)_descriptor type:ET_RDESC watcher:self forMode:mode];
  }
}

- (void)signal {
  uint64_t one = 1;
  // Fails only when the counter is full, and then the descriptor is readable anyway.
  (void)!write(_descriptor, &one, sizeof(one));
}

- (void)add:(struct DispatchWork *)work {
  work->queue = self;
  pthread_mutex_lock(&_lock);
  DispatchWorkAppend(&_list, work);
  pthread_mutex_unlock(&_lock);
  [self signal];
}

- (void)receivedEvent:(void *)data
                 type:(RunLoopEventType)type
                extra:(void *)extra
              forMode:(NSString *)mode {
  (void)data;
  (void)type;
  (void)extra;
  (void)mode;
  uint64_t count;
  (void)!read(_descriptor, &count, sizeof(count));
  // A run loop inside a block of this queue leaves the following ones alone. It is woken for them
  // all the same: whoever wants to wake it adds one.
  if (_draining) {
    return;
  }
  _draining = YES;
  pthread_mutex_lock(&_lock);
  struct DispatchWorkList due = _list;
  _list = (struct DispatchWorkList){0};
  pthread_mutex_unlock(&_lock);
  struct DispatchWork *work;
  while ((work = DispatchWorkTake(&due))) {
    DispatchRunInFrame(self, work->function, work->context, YES);
    free(work);
  }
  _draining = NO;
  // The signal for blocks that came meanwhile may have been taken by an inner run loop.
  pthread_mutex_lock(&_lock);
  BOOL more = _list.first != NULL;
  pthread_mutex_unlock(&_lock);
  if (more) {
    [self signal];
  }
}

- (void)runAndWait:(dispatch_function_t)function context:(void *)context barrier:(BOOL)barrier {
  (void)barrier;
  if ([self isOwnedByThisThread]) {
    DispatchTrap("dispatch_sync called on queue already owned by current thread");
  }
  dispatch_semaphore_t done = dispatch_semaphore_create(0);
  dispatch_async(self, ^{
    function(context);
    dispatch_semaphore_signal(done);
  });
  dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
  dispatch_release(done);
}

- (BOOL)isOwnedByThisThread {
  return DispatchIsMainThread();
}

- (id)retain {
  return self;
}

- (oneway void)release {
}

@end

dispatch_queue_t dispatch_get_main_queue(void) {
  static OS_dispatch_queue_main *queue;
  static dispatch_once_t once;
  dispatch_once(&once, ^{
    queue = [OS_dispatch_queue_main new];
  });
  return queue;
}
