#include "io_thread.h"

#include <event2/thread.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "../../threads/PlatformThread.h"

namespace platform::xpc {

namespace {

constexpr std::chrono::seconds kExitLimit(5);
/// A peer that reads may get no processor for many times 50 ms: on two cores beside twenty busy
/// processes it lost what it had not read.
constexpr std::chrono::seconds kExitWithoutProgress(1);

}  // namespace

IoThread *IoThread::shared() {
  // Never deleted: the thread outlives every static's destructor.
  static std::mutex mutex;
  static IoThread *shared = nullptr;
  std::lock_guard<std::mutex> lock(mutex);
  if (shared) {
    return shared;
  }
  auto *fresh = new IoThread;
  if (!fresh->start()) {
    delete fresh;
    return nullptr;
  }
  shared = fresh;
  std::atexit([] { shared->waitAtExit(); });
  return shared;
}

bool IoThread::start() {
  const auto loop = [](void *base) {
    event_base_loop(static_cast<event_base *>(base), EVLOOP_NO_EXIT_ON_EMPTY);
  };
  if (evthread_use_pthreads() == 0) {
    base_ = event_base_new();
  }
  if (base_ && PlatformStartThread("xpc-io", loop, base_)) {
    return true;
  }
  if (base_) {
    event_base_free(base_);
  }
  return false;
}

void IoThread::run(std::function<void()> work, std::chrono::milliseconds delay) {
  const timeval time{delay.count() / 1000, delay.count() % 1000 * 1000};
  const auto run = [](evutil_socket_t, short, void *context) {
    std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()> *>(context));
    (*work)();
  };
  event_base_once(base_, -1, EV_TIMEOUT, run, new std::function<void()>(std::move(work)), &time);
}

void IoThread::flushAtExit(evbuffer *output) {
  const auto count = [](evbuffer *, const evbuffer_cb_info *change, void *context) {
    auto *self = static_cast<IoThread *>(context);
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->added_ += change->n_added;
    self->removed_ += change->n_deleted;
    if (change->n_deleted) {
      self->progress_.notify_all();
    }
  };
  evbuffer_add_cb(output, count, this);
}

void IoThread::waitAtExit() {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + kExitLimit;
  std::unique_lock<std::mutex> lock(mutex_);
  bool progress = true;
  while (added_ != removed_ && progress && Clock::now() < end) {
    const uint64_t before = removed_;
    progress = progress_.wait_until(lock, std::min(end, Clock::now() + kExitWithoutProgress),
                                    [&] { return removed_ != before; });
  }
}

}  // namespace platform::xpc
