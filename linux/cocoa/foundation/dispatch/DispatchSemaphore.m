#import "DispatchSemaphore.h"

#include <errno.h>

#include "DispatchClock.h"
#include "DispatchTrap.h"

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
  BOOL taken = YES;
  pthread_mutex_lock(&semaphore->_lock);
  if (--semaphore->_value < 0) {
    BOOL inTime = YES;
    while (!(taken = semaphore->_wakeups > 0) && inTime) {
      inTime = DispatchConditionWait(&semaphore->_raised, &semaphore->_lock, timeout);
    }
    if (taken) {
      --semaphore->_wakeups;
    } else {
      ++semaphore->_value;
    }
  }
  pthread_mutex_unlock(&semaphore->_lock);
  return taken ? 0 : ETIMEDOUT;
}

intptr_t dispatch_semaphore_signal(dispatch_semaphore_t object) {
  OS_dispatch_semaphore *semaphore = (OS_dispatch_semaphore *)object;
  // A waiter may give up the last other reference as soon as it is woken.
  [semaphore retain];
  pthread_mutex_lock(&semaphore->_lock);
  BOOL wake = semaphore->_value++ < 0;
  if (wake) {
    ++semaphore->_wakeups;
    pthread_cond_signal(&semaphore->_raised);
  }
  pthread_mutex_unlock(&semaphore->_lock);
  [semaphore release];
  return wake;
}
