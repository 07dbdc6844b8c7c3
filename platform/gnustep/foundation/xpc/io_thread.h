// The thread that waits for all sockets of the process, and one that takes over while it is busy.
// They start with the first connection or listener and stay.
//
// What has arrived is handled on the thread that read it, since waking another takes longer than
// most messages do. A handler may take its time all the same, or never return: once it has kept the
// thread for 4 ms, the second one waits for the sockets in its place. As long as there is no second
// one, workers handle what arrives.
//
// It waits with poll(), since what epoll wakes, it wakes as if the waker went on (Linux 6.1, see
// ep_poll_callback): on another processor, which has to be woken itself first.

#ifndef PLATFORM_XPC_IO_THREAD_H
#define PLATFORM_XPC_IO_THREAD_H

#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace platform::xpc {

/// Something with a descriptor. `OnReady` and `OnKick` run on the I/O thread only, and must not
/// block.
class IoSource {
 public:
  virtual ~IoSource() = default;
  /// The descriptor is ready as the POLL… bits say.
  virtual void OnReady(short events) = 0;
  /// After `Kick` or when the time of `KickAfter` is over: look at what there is to do.
  virtual void OnKick() = 0;
  /// After `Tell`, when everything that was ready has been read.
  /// @param here  Whether to handle on this thread, for as long as it takes, what has arrived.
  virtual void OnTold(bool here) { (void)here; }
  /// After `KickWithin`, on a thread that is about to wait: do now what `OnKick` would.
  virtual void OnWait() {}
  /// Bytes that wait to be written. Any thread.
  virtual size_t Unsent() const = 0;
};

class IoThread {
 public:
  using Clock = std::chrono::steady_clock;

  /// Returns the thread, started if it was not, or nullptr when the system has no descriptors or
  /// threads left (the next call tries again). Any thread.
  static IoThread *Shared();

  /// Makes `source` known and keeps it until `Remove`. Returns its number. Any thread.
  uint64_t Add(std::shared_ptr<IoSource> source);
  void Remove(uint64_t number);

  /// Sets which POLL… bits of `fd` the source hears of; 0 says none, not even a hang-up. Any
  /// thread.
  void Watch(uint64_t number, int fd, short events);

  /// Calls `OnKick` soon. Any thread.
  void Kick(std::shared_ptr<IoSource> source);
  void KickAfter(std::chrono::milliseconds delay, std::shared_ptr<IoSource> source);
  /// Calls `OnKick` when the thread is awake anyhow, or else after `delay`; or `OnWait` when a
  /// thread is about to wait before that. Costs the caller nothing that wakes another thread.
  void KickWithin(std::chrono::milliseconds delay, std::shared_ptr<IoSource> source);

  /// Has `OnTold` called. I/O thread.
  void Tell(std::shared_ptr<IoSource> source);

  /// Tells the exit handler that bytes went out.
  void Progressed();

 private:
  struct Timer {
    Clock::time_point due;
    std::shared_ptr<IoSource> source;
  };

  IoThread() = default;
  bool Start();
  bool StartThread(uint64_t turn);
  void Run(uint64_t turn);
  void Poll(uint64_t turn);
  bool HandleNews(uint64_t turn);
  uint64_t WaitForTurn();
  void KickBeforeWait();
  int Timeout();
  int WaitForEvents(int timeout);
  void FlushAtExit();

  int wake_ = -1;
  int late_ = -1;   ///< A timer for what was kicked by `KickWithin`.
  int alarm_ = -1;  ///< A timer that the thread without a turn waits for.

  mutable std::mutex mutex_;
  std::condition_variable progress_;
  std::unordered_map<uint64_t, std::shared_ptr<IoSource>> sources_;
  std::unordered_map<uint64_t, pollfd> watched_;
  bool watchedChanged_ = true;
  std::vector<std::shared_ptr<IoSource>> kicked_;
  std::vector<Timer> timers_;
  std::vector<std::shared_ptr<IoSource>> soon_;
  Clock::time_point soonDue_ = Clock::time_point::max();  ///< When `late_` is due.
  std::deque<std::shared_ptr<IoSource>> news_;
  uint64_t turn_ = 1;  ///< Of the thread that waits for the sockets.
  bool hasSubstitute_ = false;
  bool handling_ = false;  ///< The thread with the turn is in `OnTold`.
  Clock::time_point handlingSince_;
  bool alarmIsSet_ = false;
  uint64_t lastNumber_ = 0;
  uint64_t progressed_ = 0;
  bool asleep_ = false;

  // Of the thread with the turn.
  std::vector<pollfd> polled_;
  std::vector<uint64_t> polledNumbers_;
};

}  // namespace platform::xpc

#endif
