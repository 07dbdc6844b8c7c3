#include "DispatchClock.h"

#include <dispatch/dispatch.h>
#include <errno.h>
#include <time.h>

uint64_t DispatchNow(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (uint64_t)now.tv_sec * NSEC_PER_SEC + (uint64_t)now.tv_nsec;
}

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
  if (when == DISPATCH_TIME_FOREVER) {
    return when;
  }
  uint64_t base = when == DISPATCH_TIME_NOW ? DispatchNow() : when;
  if (delta >= 0) {
    uint64_t sum;
    if (__builtin_add_overflow(base, (uint64_t)delta, &sum)) {
      return DISPATCH_TIME_FOREVER;
    }
    return sum;
  }
  uint64_t back = -(uint64_t)delta;
  // Not 0, which says "now".
  return back < base ? base - back : 1;
}

void DispatchConditionInit(pthread_cond_t *condition) {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(condition, &attributes);
  pthread_condattr_destroy(&attributes);
}

bool DispatchConditionWait(pthread_cond_t *condition, pthread_mutex_t *lock, uint64_t when) {
  if (when == DISPATCH_TIME_FOREVER) {
    return pthread_cond_wait(condition, lock) == 0;
  }
  if (when == DISPATCH_TIME_NOW) {
    return false;
  }
  struct timespec until = {.tv_sec = (time_t)(when / NSEC_PER_SEC),
                           .tv_nsec = (long)(when % NSEC_PER_SEC)};
  return pthread_cond_timedwait(condition, lock, &until) != ETIMEDOUT;
}
