#include <dispatch/dispatch.h>
#include <pthread.h>

#include "DispatchCallout.h"
#include "DispatchTrap.h"

// A predicate is 0 before the run, then the address of a variable of the running thread, then -1.
static const dispatch_once_t kDone = -1;

static pthread_mutex_t sLock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t sEnded = PTHREAD_COND_INITIALIZER;

static __thread char sThread;

void dispatch_once_f(dispatch_once_t *predicate, void *context, dispatch_function_t function) {
  if (__atomic_load_n(predicate, __ATOMIC_ACQUIRE) == kDone) {
    return;
  }
  dispatch_once_t self = (dispatch_once_t)&sThread;
  dispatch_once_t seen = 0;
  if (__atomic_compare_exchange_n(predicate, &seen, self, false, __ATOMIC_ACQUIRE,
                                  __ATOMIC_ACQUIRE)) {
    DispatchCallout(function, context, false);
    pthread_mutex_lock(&sLock);
    __atomic_store_n(predicate, kDone, __ATOMIC_RELEASE);
    pthread_cond_broadcast(&sEnded);
    pthread_mutex_unlock(&sLock);
    return;
  }
  if (seen == self) {
    DispatchTrap("trying to lock recursively");
  }
  pthread_mutex_lock(&sLock);
  while (__atomic_load_n(predicate, __ATOMIC_ACQUIRE) != kDone) {
    pthread_cond_wait(&sEnded, &sLock);
  }
  pthread_mutex_unlock(&sLock);
}

#undef dispatch_once
void dispatch_once(dispatch_once_t *predicate, dispatch_block_t block) {
  dispatch_once_f(predicate, (void *)block, DispatchCallBlock);
}
