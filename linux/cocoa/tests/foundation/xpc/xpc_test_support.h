// Peers, sockets and waiting for the connection tests.

#ifndef XPC_TEST_SUPPORT_H
#define XPC_TEST_SUPPORT_H

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace xpc_test {

using Clock = std::chrono::steady_clock;

/// How long a test waits for what must happen, on a machine that has other work too.
constexpr std::chrono::milliseconds kPatience(120000);

double MillisecondsSince(Clock::time_point start);

/// Counts events on any thread; another waits for them.
class Counter {
 public:
  void add();
  /// Returns whether the count reached `count` in time.
  bool wait(unsigned count = 1, std::chrono::milliseconds limit = kPatience);
  unsigned count();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  unsigned count_ = 0;
};

/// A service directory of its own for as long as it lives, and the environment set to it.
class ServiceDirectory {
 public:
  ServiceDirectory();
  ~ServiceDirectory();
  const std::string &path() const { return path_; }
  std::string socket(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// The process `xpc_peer`. Ended with the object.
class Peer {
 public:
  Peer() = default;
  ~Peer();
  /// Returns once the peer serves `name`.
  bool serve(const std::string &name);
  bool start(const std::vector<std::string> &arguments);
  void signal(int signal);
  /// Returns the exit status, or -1 when it was a signal or did not end in time.
  int waitForExit();
  pid_t process() const { return process_; }

 private:
  pid_t process_ = -1;
  int output_ = -1;
};

/// A bare socket, either end.
class RawSocket {
 public:
  explicit RawSocket(int fd = -1) : fd_(fd) {}
  ~RawSocket() { close(); }
  RawSocket(RawSocket &&other) : fd_(other.fd_) { other.fd_ = -1; }
  RawSocket &operator=(RawSocket &&other);

  static RawSocket listen(const std::string &path, int backlog);
  static RawSocket connect(const std::string &path);

  RawSocket accept();
  bool write(const void *bytes, size_t length);
  bool write(const std::vector<uint8_t> &bytes) { return write(bytes.data(), bytes.size()); }
  /// Reads one frame, header included; empty at the end or when nothing comes in time.
  std::vector<uint8_t> readFrame();
  /// Returns whether the peer closes in time; what it sends before is thrown away.
  bool waitForEnd();
  void close();
  bool isOpen() const { return fd_ >= 0; }
  int fd() const { return fd_; }

 private:
  int fd_;
};

/// The number of open descriptors of this process.
unsigned OpenDescriptors();

}  // namespace xpc_test

#endif
