#include "io_thread.h"

#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "../threads/ThreadEntry.h"

namespace platform::xpc {

namespace {

constexpr std::chrono::milliseconds kExitLimit(250);
constexpr std::chrono::milliseconds kExitWithoutProgress(50);
constexpr std::chrono::milliseconds kLongestHandling(1);

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
  epoll_ = epoll_create1(EPOLL_CLOEXEC);
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  alarm_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  if (epoll_ >= 0 && wake_ >= 0 && alarm_ >= 0 &&
      epoll_ctl(epoll_, EPOLL_CTL_ADD, wake_, &event) == 0 && StartThread(turn_)) {
    // Without the second one all goes the slower way.
    StartThread(0);
    return true;
  }
  for (int fd : {epoll_, wake_, alarm_}) {
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

void IoThread::Watch(uint64_t number, int fd, uint32_t before, uint32_t now) {
  if (before == now) return;
  epoll_event event{};
  event.events = now;
  event.data.u64 = number;
  epoll_ctl(epoll_, !now ? EPOLL_CTL_DEL : before ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &event);
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
  std::vector<std::shared_ptr<IoSource>> kicked;
  do {
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
      if (news_.empty()) timeout = Timeout();
      asleep_ = timeout != 0;
    }

    epoll_event events[64];
    int count = epoll_wait(epoll_, events, 64, timeout);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      asleep_ = false;
    }
    for (int i = 0; i < count; ++i) {
      const uint64_t number = events[i].data.u64;  // The structure is packed.
      if (number == 0) {
        eventfd_t ignored;
        eventfd_read(wake_, &ignored);
        continue;
      }
      std::shared_ptr<IoSource> source;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = sources_.find(number);
        if (found != sources_.end()) source = found->second;
      }
      if (source) source->OnReady(events[i].events);
    }
  } while (HandleNews(turn));
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
        if (!alarmIsSet_) SetAlarm(kLongestHandling);
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
      SetAlarm(left);
      continue;
    }
    hasSubstitute_ = false;
    handling_ = false;
    return ++turn_;
  }
}

/// Call with the lock held.
void IoThread::SetAlarm(Clock::duration delay) {
  itimerspec time{};
  time.it_value.tv_nsec = std::chrono::duration_cast<std::chrono::nanoseconds>(delay).count();
  alarmIsSet_ = timerfd_settime(alarm_, 0, &time, nullptr) == 0;
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
