//
// The least that a request and its reply can cost between two processes: frames over a Unix socket,
// and in each process one hop from the thread that reads to the thread that works.
//

#ifndef BENCH_PING_PONG_H
#define BENCH_PING_PONG_H

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

/// A handover of one thing from one thread to another.
class Hop {
 public:
  void Give();
  void Take();

 private:
  std::mutex mutex_;
  std::condition_variable given_;
  bool full_ = false;
};

constexpr size_t kRequestSize = 72;
constexpr size_t kReplySize = 18;

/// Connects to a socket file. Aborts when that fails.
int ConnectTo(const std::string &path);

/// Listens on a socket file and runs `serve` in a thread for each connection that it accepts, for
/// as long as the process lives.
void ServeOn(const std::string &path, void (*serve)(int socket));

/// Answers requests of `kRequestSize` with replies of `kReplySize` until the peer has closed.
void ServePings(int socket);

/// Counts bytes until the peer has closed its side, and sends it the number as 8 bytes.
void ServeCounts(int socket);

class PingClient {
 public:
  explicit PingClient(const std::string &path);
  ~PingClient();
  void RoundTrip();

 private:
  int socket_;
  Hop replies_;
  std::thread reader_;
};

#endif
