// Threads that take long to start, as on a busy machine. In a program of its own: no worker waits
// here already, and it stands before the system's way of starting threads.

#include <dispatch/dispatch.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <utility>

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
    while (sSlow) usleep(1000);
    return start(argument);
  };
  return next(thread, attributes, run, new ThreadStart(start, argument));
}

TEST(Workers, ThatAreOnTheirWayToSerialQueuesDoNotKeepAGlobalOneWaiting) {
  constexpr int kBlocked = 70;
  dispatch_semaphore_t gate = dispatch_semaphore_create(0);
  dispatch_group_t group = dispatch_group_create();
  sSlow = true;
  for (int i = 0; i < kBlocked; ++i) {
    dispatch_queue_t serial = dispatch_queue_create("blocked", DISPATCH_QUEUE_SERIAL);
    dispatch_group_async(group, serial, ^{
      dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER);
    });
    dispatch_release(serial);
  }
  dispatch_async(dispatch_get_global_queue(0, 0), ^{
    for (int i = 0; i < kBlocked; ++i) dispatch_semaphore_signal(gate);
  });
  sSlow = false;
  EXPECT_EQ(0, dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, 10 * NSEC_PER_SEC)));
  dispatch_release(group);
  dispatch_release(gate);
}
