// The thread that all sockets of the process are read, written and accepted on: a libevent loop. It
// starts with the first connection or listener and stays.

#ifndef PLATFORM_XPC_IO_THREAD_H
#define PLATFORM_XPC_IO_THREAD_H

#include <event2/buffer.h>
#include <event2/event.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace platform::xpc {

class IoThread {
 public:
  /// Returns the thread, started if it was not, or nullptr when the system has no descriptors or
  /// threads left (the next call tries again). Any thread.
  static IoThread *shared();

  event_base *base() const { return base_; }

  /// Runs `work` on the thread after `delay`. It must not block. Any thread.
  void run(std::function<void()> work,
           std::chrono::milliseconds delay = std::chrono::milliseconds(0));

  /// Has a normal exit of the process wait a moment for the bytes in `output`. Any thread.
  void flushAtExit(evbuffer *output);

 private:
  IoThread() = default;
  bool start();
  void waitAtExit();

  event_base *base_ = nullptr;

  std::mutex mutex_;
  std::condition_variable progress_;
  uint64_t added_ = 0;    ///< Bytes that were to be written.
  uint64_t removed_ = 0;  ///< Those of them that were, or never will be.
};

}  // namespace platform::xpc

#endif
