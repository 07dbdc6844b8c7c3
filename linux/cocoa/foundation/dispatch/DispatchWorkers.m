#include "DispatchWorkers.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

#include "../threads/PlatformThread.h"
#include "DispatchClock.h"
#import "DispatchQueue.h"

enum { kMostBounded = 64, kMostThreads = 512 };
static const int64_t kIdleLife = 5 * (int64_t)NSEC_PER_SEC;

// All of this is guarded by the lock. Nothing here has a destructor: workers may run while the
// process exits.
static pthread_mutex_t sLock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t sCalled;
static pthread_once_t sPrepared = PTHREAD_ONCE_INIT;
static struct DispatchWorkList sBounded;
static struct DispatchWorkList sUnbounded;
static unsigned sRunningBounded;
static unsigned sThreads;
static unsigned sStarting;  // Threads that were started and have not looked for work yet.
static unsigned sIdle;      // Threads that wait and were not called.
static unsigned sCalls;     // Calls that a waiting thread has still to answer.

static void Prepare(void) { DispatchConditionInit(&sCalled); }

/// Called with the lock held. Returns NULL where there is nothing this thread may do.
static struct DispatchWork *Take(BOOL *bounded) {
  struct DispatchWork *work = DispatchWorkTake(&sUnbounded);
  *bounded = NO;
  if (!work && sRunningBounded < kMostBounded) {
    work = DispatchWorkTake(&sBounded);
    *bounded = work != NULL;
  }
  return work;
}

/// Called with the lock held. Returns whether the thread was called before its time was over.
static BOOL WaitForCall(void) {
  ++sIdle;
  dispatch_time_t end = dispatch_time(DISPATCH_TIME_NOW, kIdleLife);
  BOOL inTime = YES;
  while (!sCalls && inTime) {
    inTime = DispatchConditionWait(&sCalled, &sLock, end);
  }
  if (sCalls) {
    --sCalls;
    return YES;
  }
  --sIdle;
  return NO;
}

static void Work(void *unused) {
  (void)unused;
  pthread_mutex_lock(&sLock);
  --sStarting;
  do {
    BOOL bounded;
    struct DispatchWork *work;
    while ((work = Take(&bounded))) {
      sRunningBounded += bounded;
      pthread_mutex_unlock(&sLock);
      while (work) {
        work = [work->queue run:work];
      }
      pthread_mutex_lock(&sLock);
      sRunningBounded -= bounded;
    }
  } while (WaitForCall());
  --sThreads;
  pthread_mutex_unlock(&sLock);
}

/// Called with the lock held.
static void StartThread(void) {
  if (PlatformStartThread("dispatch-worker", Work, NULL)) {
    ++sThreads;
    ++sStarting;
  } else if (!sThreads) {
    fputs("dispatch: no worker thread can be started\n", stderr);
    abort();
  }
}

void DispatchToWorkers(struct DispatchWork *work, BOOL bounded) {
  pthread_once(&sPrepared, Prepare);
  pthread_mutex_lock(&sLock);
  DispatchWorkAppend(bounded ? &sBounded : &sUnbounded, work);
  // A thread for all that may begin now. Those on their way take what is first, of either kind, and
  // perhaps never come back from it. What may not begin yet is taken up by a thread that ends its
  // own.
  const size_t ready = sUnbounded.count + MIN(sBounded.count, kMostBounded - sRunningBounded);
  if (ready > sStarting + sCalls) {
    if (sIdle) {
      --sIdle;
      ++sCalls;
      pthread_cond_signal(&sCalled);
    } else if (sThreads < kMostThreads) {
      StartThread();
    }
  }
  pthread_mutex_unlock(&sLock);
}
