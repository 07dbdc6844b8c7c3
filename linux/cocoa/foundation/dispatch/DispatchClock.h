#ifndef PLATFORM_DISPATCH_CLOCK_H
#define PLATFORM_DISPATCH_CLOCK_H

#include <pthread.h>
#include <stdbool.h>
#include <stdint.h>

/// Nanoseconds of the monotonic clock.
uint64_t DispatchNow(void);

/// Prepares a condition whose timed waits go by that clock.
void DispatchConditionInit(pthread_cond_t *condition);

/// Waits for `condition` until `when`, a `dispatch_time_t`. Returns false once that is reached.
bool DispatchConditionWait(pthread_cond_t *condition, pthread_mutex_t *lock, uint64_t when);

#endif
