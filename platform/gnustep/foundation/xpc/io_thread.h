// The thread that waits for all that the process's sockets do but bring bytes: connections to
// accept, room to write, and times. It starts with the first connection or listener and stays.

#ifndef PLATFORM_XPC_IO_THREAD_H
#define PLATFORM_XPC_IO_THREAD_H

#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
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
  /// The descriptor may be ready for what the source watches.
  virtual void OnReady() = 0;
  /// After `Kick` or when the time of `KickAfter` is over: look at what there is to do.
  virtual void OnKick() = 0;
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

  /// Tells the exit handler that bytes went out.
  void Progressed();

 private:
  struct Timer {
    Clock::time_point due;
    std::shared_ptr<IoSource> source;
  };

  IoThread() = default;
  bool Start();
  void Run();
  int Timeout();
  int WaitForEvents(int timeout);
  void FlushAtExit();

  int wake_ = -1;

  mutable std::mutex mutex_;
  std::condition_variable progress_;
  std::unordered_map<uint64_t, std::shared_ptr<IoSource>> sources_;
  std::unordered_map<uint64_t, pollfd> watched_;
  bool watchedChanged_ = true;
  std::vector<std::shared_ptr<IoSource>> kicked_;
  std::vector<Timer> timers_;
  uint64_t lastNumber_ = 0;
  uint64_t progressed_ = 0;
  bool asleep_ = false;

  // Of the thread.
  std::vector<pollfd> polled_;
  std::vector<uint64_t> polledNumbers_;
};

}  // namespace platform::xpc

#endif
