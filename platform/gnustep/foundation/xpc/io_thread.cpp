#include "io_thread.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <thread>

#include "../threads/PlatformThread.h"

namespace platform::xpc {

namespace {

constexpr std::chrono::milliseconds kExitLimit(250);
constexpr std::chrono::milliseconds kExitWithoutProgress(50);
constexpr std::chrono::milliseconds kPauseBetweenLooks(5);

}  // namespace

IoThread *IoThread::Shared() {
  // Never deleted: the thread outlives every static's destructor.
  static std::mutex mutex;
  static IoThread *shared = nullptr;
  std::lock_guard<std::mutex> lock(mutex);
  if (shared) return shared;
  auto *fresh = new IoThread;
  if (!fresh->Start()) {
    delete fresh;
    return nullptr;
  }
  shared = fresh;
  std::atexit([] { shared->FlushAtExit(); });
  return shared;
}

bool IoThread::Start() {
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const auto run = [](void *self) { static_cast<IoThread *>(self)->Run(); };
  if (wake_ >= 0 && PlatformStartThread("xpc-io", run, this)) return true;
  if (wake_ >= 0) close(wake_);
  return false;
}

uint64_t IoThread::Add(std::shared_ptr<IoSource> source) {
  std::lock_guard<std::mutex> lock(mutex_);
  sources_.emplace(++lastNumber_, std::move(source));
  return lastNumber_;
}

void IoThread::Remove(uint64_t number) {
  std::shared_ptr<IoSource> last;
  std::lock_guard<std::mutex> lock(mutex_);
  auto found = sources_.find(number);
  if (found == sources_.end()) return;
  last = std::move(found->second);
  sources_.erase(found);
}

void IoThread::Watch(uint64_t number, int fd, short events) {
  bool wake;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = watched_.find(number);
    if (found == watched_.end()) {
      if (!events) return;
      watched_.emplace(number, pollfd{fd, events, 0});
    } else if (!events) {
      watched_.erase(found);
    } else if (found->second.events != events) {
      found->second.events = events;
    } else {
      return;
    }
    watchedChanged_ = true;
    wake = asleep_;
    asleep_ = false;
  }
  if (wake) eventfd_write(wake_, 1);
}

void IoThread::Kick(std::shared_ptr<IoSource> source) {
  bool wake;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    kicked_.push_back(std::move(source));
    wake = asleep_;
    asleep_ = false;
  }
  if (wake) eventfd_write(wake_, 1);
}

void IoThread::KickAfter(std::chrono::milliseconds delay, std::shared_ptr<IoSource> source) {
  bool wake;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    timers_.push_back({Clock::now() + delay, std::move(source)});
    wake = asleep_;
    asleep_ = false;
  }
  if (wake) eventfd_write(wake_, 1);
}

/// Moves what is due to `kicked_`. Returns how long the thread may sleep; call with the lock held.
int IoThread::Timeout() {
  if (timers_.empty()) return kicked_.empty() ? -1 : 0;
  Clock::time_point now = Clock::now();
  Clock::time_point next = Clock::time_point::max();
  for (auto it = timers_.begin(); it != timers_.end();) {
    if (it->due <= now) {
      kicked_.push_back(std::move(it->source));
      it = timers_.erase(it);
    } else {
      next = std::min(next, it->due);
      ++it;
    }
  }
  if (!kicked_.empty()) return 0;
  auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
  return static_cast<int>(left);
}

void IoThread::Run() {
  std::vector<std::shared_ptr<IoSource>> kicked;
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      Timeout();
      kicked.swap(kicked_);
    }
    for (auto &source : kicked) source->OnKick();
    kicked.clear();
    int timeout = 0;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      timeout = Timeout();
      asleep_ = timeout != 0;
      if (watchedChanged_) {
        watchedChanged_ = false;
        polled_ = {{wake_, POLLIN, 0}};
        polledNumbers_ = {0};
        for (auto &[number, watched] : watched_) {
          polled_.push_back(watched);
          polledNumbers_.push_back(number);
        }
      }
    }

    int count = WaitForEvents(timeout);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      asleep_ = false;
    }
    for (size_t i = 0; count > 0 && i < polled_.size(); ++i) {
      if (!polled_[i].revents) continue;
      --count;
      const uint64_t number = polledNumbers_[i];
      if (number == 0) {
        uint64_t ignored;
        (void)!read(polled_[i].fd, &ignored, sizeof ignored);
        continue;
      }
      std::shared_ptr<IoSource> source;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = sources_.find(number);
        if (found != sources_.end()) source = found->second;
      }
      if (source) source->OnReady();
    }
  }
}

/// Waits and fills in what happened to `polled_`. Returns as poll().
int IoThread::WaitForEvents(int timeout) {
  const int count = poll(polled_.data(), polled_.size(), timeout);
  if (count >= 0 || errno == EINTR) return count;
  // A process that allows itself fewer descriptors than it has cannot wait for them: poll(2)
  // compares their number with the limit. Whoever is told so finds out that nothing has happened.
  std::this_thread::sleep_for(kPauseBetweenLooks);
  for (pollfd &one : polled_) one.revents = one.events;
  return static_cast<int>(polled_.size());
}

void IoThread::Progressed() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++progressed_;
  progress_.notify_all();
}

void IoThread::FlushAtExit() {
  Clock::time_point end = Clock::now() + kExitLimit;
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    std::vector<std::shared_ptr<IoSource>> sources;
    for (auto &entry : sources_) sources.push_back(entry.second);
    uint64_t before = progressed_;
    lock.unlock();
    size_t unsent = 0;
    for (auto &source : sources) unsent += source->Unsent();
    sources.clear();
    lock.lock();
    Clock::time_point now = Clock::now();
    if (!unsent || now >= end) return;
    if (!progress_.wait_until(lock, std::min(end, now + kExitWithoutProgress),
                              [&] { return progressed_ != before; })) {
      return;
    }
  }
}

}  // namespace platform::xpc
