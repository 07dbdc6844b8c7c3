#import <Foundation/NSObject.h>
#include <dispatch/dispatch.h>
#include <errno.h>
#include <pthread.h>

#include "DispatchClock.h"
#include "DispatchTrap.h"

@interface OS_dispatch_semaphore : NSObject <OS_dispatch_semaphore> {
 @package
  pthread_mutex_t _lock;
  pthread_cond_t _raised;
  NSInteger _value;
  NSInteger _original;
  NSInteger _waiting;  // Threads that wait, and as many of them as were woken have yet to go on.
}
@end

@implementation OS_dispatch_semaphore

- (id)initWithValue:(NSInteger)value {
  if ((self = [super init])) {
    pthread_mutex_init(&_lock, NULL);
    DispatchConditionInit(&_raised);
    _value = _original = value;
  }
  return self;
}

- (void)dealloc {
  if (_value < _original) {
    DispatchTrap("Semaphore object deallocated while in use");
  }
  pthread_cond_destroy(&_raised);
  pthread_mutex_destroy(&_lock);
  [super dealloc];
}

@end

dispatch_semaphore_t dispatch_semaphore_create(intptr_t value) {
  return value < 0 ? nil : [[OS_dispatch_semaphore alloc] initWithValue:value];
}

intptr_t dispatch_semaphore_wait(dispatch_semaphore_t object, dispatch_time_t timeout) {
  OS_dispatch_semaphore *semaphore = (OS_dispatch_semaphore *)object;
  BOOL inTime = YES;
  pthread_mutex_lock(&semaphore->_lock);
  ++semaphore->_waiting;
  while (semaphore->_value == 0 && inTime) {
    inTime = DispatchConditionWait(&semaphore->_raised, &semaphore->_lock, timeout);
  }
  --semaphore->_waiting;
  const BOOL taken = semaphore->_value > 0;
  semaphore->_value -= taken;
  pthread_mutex_unlock(&semaphore->_lock);
  return taken ? 0 : ETIMEDOUT;
}

intptr_t dispatch_semaphore_signal(dispatch_semaphore_t object) {
  OS_dispatch_semaphore *semaphore = (OS_dispatch_semaphore *)object;
  // A waiter may give up the last other reference as soon as it is woken.
  [semaphore retain];
  pthread_mutex_lock(&semaphore->_lock);
  const BOOL wake = semaphore->_value++ < semaphore->_waiting;
  pthread_cond_signal(&semaphore->_raised);
  pthread_mutex_unlock(&semaphore->_lock);
  [semaphore release];
  return wake;
}
