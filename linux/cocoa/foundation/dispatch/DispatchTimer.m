#include <Block.h>
#include <dispatch/dispatch.h>
#include <pthread.h>
#include <stdlib.h>

#include "DispatchCallout.h"
#include "DispatchClock.h"

/// A call that waits for its moment, in a list ordered by it.
struct Timer {
  struct Timer *next;
  dispatch_time_t when;
  dispatch_queue_t queue;
  void *context;
  dispatch_function_t function;
};

static pthread_mutex_t sLock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t sChanged;
static pthread_once_t sPrepared = PTHREAD_ONCE_INIT;
static struct Timer *sTimers;
static BOOL sRunning;  // A worker waits for the first timer.

static void Prepare(void) { DispatchConditionInit(&sChanged); }

/// Runs on a worker for as long as there are timers.
static void RunTimers(void *unused) {
  (void)unused;
  pthread_mutex_lock(&sLock);
  while (sTimers) {
    struct Timer *timer = sTimers;
    if (timer->when > DispatchNow()) {
      DispatchConditionWait(&sChanged, &sLock, timer->when);
      continue;
    }
    sTimers = timer->next;
    pthread_mutex_unlock(&sLock);
    dispatch_async_f(timer->queue, timer->context, timer->function);
    [timer->queue release];
    free(timer);
    pthread_mutex_lock(&sLock);
  }
  sRunning = NO;
  pthread_mutex_unlock(&sLock);
}

/// A serial queue, since its blocks get a thread even when all others are blocked.
static dispatch_queue_t TimerQueue(void) {
  static dispatch_queue_t queue;
  static dispatch_once_t once;
  dispatch_once(&once, ^{
    queue = dispatch_queue_create("com.apple.libdispatch-manager", DISPATCH_QUEUE_SERIAL);
  });
  return queue;
}

void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void *context,
                      dispatch_function_t work) {
  if (when == DISPATCH_TIME_FOREVER) {
    return;
  }
  if (when <= DispatchNow()) {
    dispatch_async_f(queue, context, work);
    return;
  }
  struct Timer *timer = malloc(sizeof(*timer));
  if (!timer) {
    abort();
  }
  *timer = (struct Timer){NULL, when, [queue retain], context, work};
  pthread_once(&sPrepared, Prepare);
  pthread_mutex_lock(&sLock);
  struct Timer **link = &sTimers;
  while (*link && (*link)->when <= when) {
    link = &(*link)->next;
  }
  timer->next = *link;
  *link = timer;
  BOOL start = !sRunning;
  sRunning = YES;
  if (sTimers == timer) {
    pthread_cond_signal(&sChanged);
  }
  pthread_mutex_unlock(&sLock);
  if (start) {
    dispatch_async_f(TimerQueue(), NULL, RunTimers);
  }
}

void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block) {
  if (when == DISPATCH_TIME_FOREVER) {
    return;
  }
  dispatch_after_f(when, queue, (void *)Block_copy(block), DispatchCallAndReleaseBlock);
}
