// Functions and variables of libSystem and the frameworks that are something else in the layer or
// in the C library.

#include <dispatch/dispatch.h>
#include <pthread.h>
#include <sys/random.h>

#include <cstdint>
#include <cstdlib>

#include "imports.h"

extern "C" int __cxa_atexit(void (*function)(void *), void *argument, void *module);
extern "C" void *__dso_handle;

namespace {

/// A variable on a Mac; the layer makes the main queue when it is first asked for. Its address
/// stands for the queue.
const char sMainQueue[64] = {};

dispatch_queue_t RealQueue(dispatch_queue_t queue) {
  return reinterpret_cast<const char *>(queue) == sMainQueue ? dispatch_get_main_queue() : queue;
}

void Async(dispatch_queue_t queue, dispatch_block_t block) {
  dispatch_async(RealQueue(queue), block);
}

void After(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block) {
  dispatch_after(when, RealQueue(queue), block);
}

/// Apple's mutexes have room for glibc's. One that is initialized by its constant begins with a
/// signature, which glibc would take for a lock that is held.
int LockMutex(pthread_mutex_t *mutex) {
  int signature = 0x32AAABA7;
  __atomic_compare_exchange_n(reinterpret_cast<int *>(mutex), &signature, 0, false,
                              __ATOMIC_ACQ_REL, __ATOMIC_RELAXED);
  return pthread_mutex_lock(mutex);
}

/// The image's own handle means nothing here.
int AtExit(void (*function)(void *), void *argument, void *) {
  return __cxa_atexit(function, argument, &__dso_handle);
}

[[noreturn]] void BindLazily() { std::abort(); }

uintptr_t RandomGuard() {
  uintptr_t value = 0;
  (void)!getrandom(&value, sizeof value, 0);
  // A zero among the bytes stops whoever copies a text over it.
  return value & ~uintptr_t{0xff};
}

const uintptr_t sGuard = RandomGuard();

/// An inline constant in GNUstep's headers.
const double sZeroRect[4] = {};

/// The class of constant strings, which objc_runtime.cpp converts.
const char sStringClass[16] = {};

}  // namespace

namespace macho {

const StandIn kSystemStandIns[] = {
    {"__dispatch_main_q", sMainQueue},
    {"_dispatch_async", reinterpret_cast<void *>(&Async)},
    {"_dispatch_after", reinterpret_cast<void *>(&After)},
    {"_pthread_mutex_lock", reinterpret_cast<void *>(&LockMutex)},
    {"___cxa_atexit", reinterpret_cast<void *>(&AtExit)},
    {"___stack_chk_guard", &sGuard},
    // Every import is bound before anything runs.
    {"dyld_stub_binder", reinterpret_cast<void *>(&BindLazily)},
    {"_NSZeroRect", sZeroRect},
    {"___CFConstantStringClassReference", sStringClass},
    {nullptr, nullptr},
};

}  // namespace macho
