#include "io_thread.h"

#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <thread>

#include "../dispatch/DispatchWait.h"
#include "../threads/ThreadEntry.h"

namespace platform::xpc {

namespace {

constexpr std::chrono::milliseconds kExitLimit(250);
constexpr std::chrono::milliseconds kExitWithoutProgress(50);
constexpr std::chrono::milliseconds kLongestHandling(4);
constexpr std::chrono::milliseconds kPauseBetweenLooks(5);

/// Sets a timer to less than a second. Returns whether it is set.
bool SetTimer(int timer, IoThread::Clock::duration delay) {
  itimerspec time{};
  // Never 0, which would stop it.
  time.it_value.tv_nsec =
      std::max(1L, std::chrono::duration_cast<std::chrono::nanoseconds>(delay).count());
  return timerfd_settime(timer, 0, &time, nullptr) == 0;
}

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
  DispatchSetBeforeWait([] { shared->KickBeforeWait(); });
  std::atexit([] { shared->FlushAtExit(); });
  return shared;
}

bool IoThread::Start() {
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  late_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  alarm_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
  if (wake_ >= 0 && late_ >= 0 && alarm_ >= 0 && StartThread(turn_)) {
    // Without the second one all goes the slower way.
    StartThread(0);
    return true;
  }
  for (int fd : {wake_, late_, alarm_}) {
    if (fd >= 0) close(fd);
  }
  return false;
}

/// @param turn  As for `Run`.
bool IoThread::StartThread(uint64_t turn) {
  struct Call {
    IoThread *self;
    uint64_t turn;
  };
  std::unique_ptr<Call> call(new Call{this, turn});
  // The host's signal handlers belong to its own threads.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const bool made = pthread_create(
                        &thread, nullptr,
                        [](void *context) -> void * {
                          std::unique_ptr<Call> call(static_cast<Call *>(context));
                          pthread_setname_np(pthread_self(), "xpc-io");
                          PlatformEnterThread();
                          call->self->Run(call->turn);
                          return nullptr;
                        },
                        call.get()) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (made) {
    call.release();
    pthread_detach(thread);
  }
  return made;
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

void IoThread::KickWithin(std::chrono::milliseconds delay, std::shared_ptr<IoSource> source) {
  std::lock_guard<std::mutex> lock(mutex_);
  soon_.push_back(std::move(source));
  if (!asleep_) return;
  const Clock::time_point due = Clock::now() + delay;
  if (due < soonDue_ && SetTimer(late_, delay)) soonDue_ = due;
}

/// The timer stays as it is: the next kick needs it again.
void IoThread::KickBeforeWait() {
  std::vector<std::shared_ptr<IoSource>> soon;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    soon.swap(soon_);
  }
  for (auto &source : soon) source->OnWait();
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

/// @param turn  The turn to begin with, or 0 for none.
void IoThread::Run(uint64_t turn) {
  for (;;) {
    if (!turn) turn = WaitForTurn();
    Poll(turn);
    turn = 0;
  }
}

/// Waits for the sockets until another thread has the turn.
void IoThread::Poll(uint64_t turn) {
  std::vector<std::shared_ptr<IoSource>> kicked, soon;
  do {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      Timeout();
      kicked.swap(kicked_);
      soon.swap(soon_);
    }
    for (auto &source : kicked) source->OnKick();
    kicked.clear();
    for (auto &source : soon) source->OnKick();
    soon.clear();
    int timeout = 0;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (news_.empty() && soon_.empty()) timeout = Timeout();
      asleep_ = timeout != 0;
      if (watchedChanged_) {
        watchedChanged_ = false;
        polled_ = {{wake_, POLLIN, 0}, {late_, POLLIN, 0}};
        polledNumbers_ = {0, 0};
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
      if (soonDue_ != Clock::time_point::max() && soonDue_ <= Clock::now()) {
        soonDue_ = Clock::time_point::max();
      }
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
      if (source) source->OnReady(polled_[i].revents);
    }
  } while (HandleNews(turn));
}

/// Waits and fills in what happened to `polled_`. Returns as poll().
int IoThread::WaitForEvents(int timeout) {
  int count = poll(polled_.data(), polled_.size(), timeout);
  if (count >= 0 || errno == EINTR) return count;
  // A process that allows itself fewer descriptors than it has cannot wait for all at once: poll(2)
  // compares their number with the limit.
  std::this_thread::sleep_for(kPauseBetweenLooks);
  count = 0;
  for (pollfd &one : polled_) {
    one.revents = 0;
    if (poll(&one, 1, 0) > 0) ++count;
  }
  return count;
}

void IoThread::Tell(std::shared_ptr<IoSource> source) {
  std::lock_guard<std::mutex> lock(mutex_);
  news_.push_back(std::move(source));
}

/// Returns whether this thread still has the turn.
bool IoThread::HandleNews(uint64_t turn) {
  for (;;) {
    std::shared_ptr<IoSource> source;
    bool here;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (turn_ != turn) return false;
      handling_ = false;
      if (news_.empty()) return true;
      source = std::move(news_.front());
      news_.pop_front();
      here = hasSubstitute_;
      if (here) {
        handling_ = true;
        handlingSince_ = Clock::now();
        if (!alarmIsSet_) alarmIsSet_ = SetTimer(alarm_, kLongestHandling);
      }
    }
    source->OnTold(here);
  }
}

/// Waits until the thread with the turn has been handling something for too long, and takes it.
uint64_t IoThread::WaitForTurn() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    hasSubstitute_ = true;
  }
  for (;;) {
    uint64_t expirations;
    (void)!read(alarm_, &expirations, sizeof expirations);
    std::lock_guard<std::mutex> lock(mutex_);
    alarmIsSet_ = false;
    if (!handling_) continue;
    // The alarm may be an earlier message's.
    const Clock::duration left = handlingSince_ + kLongestHandling - Clock::now();
    if (left > Clock::duration::zero()) {
      alarmIsSet_ = SetTimer(alarm_, left);
      continue;
    }
    hasSubstitute_ = false;
    handling_ = false;
    return ++turn_;
  }
}

void IoThread::Progressed() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++progressed_;
  progress_.notify_all();
}

void IoThread::FlushAtExit() {
  KickBeforeWait();
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
