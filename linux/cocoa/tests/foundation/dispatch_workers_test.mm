// Threads that take long to start, as on a busy machine. In a program of its own: no worker waits
// here already, and it stands before the system's way of starting threads.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <utility>

#include "blocked_queues.h"

namespace {

using ThreadStart = std::pair<void *(*)(void *), void *>;

std::atomic<bool> sSlow;

}  // namespace

extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t *thread, const pthread_attr_t *attributes, void *(*start)(void *), void *argument) {
  static auto *const next =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  const auto run = [](void *context) {
    const auto [start, argument] = *static_cast<ThreadStart *>(context);
    delete static_cast<ThreadStart *>(context);
    while (sSlow) {
      usleep(1000);
    }
    return start(argument);
  };
  return next(thread, attributes, run, new ThreadStart(start, argument));
}

TEST(Workers, ThatAreOnTheirWayToSerialQueuesDoNotKeepAGlobalOneWaiting) {
  sSlow = true;
  EXPECT_TRUE(AGlobalQueueGoesOnBesideBlockedOnes([] { sSlow = false; }));
}
