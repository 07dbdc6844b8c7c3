#include "bench/ping_pong.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

sockaddr_un Address(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.copy(address.sun_path, sizeof address.sun_path - 1) != path.size()) {
    abort();
  }
  return address;
}

bool ReceiveAll(int socket, size_t size) {
  std::vector<char> bytes(size);
  return recv(socket, bytes.data(), size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

bool SendAll(int socket, size_t size) {
  static const char bytes[256] = {};
  return send(socket, bytes, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

}  // namespace

void Hop::Give() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    full_ = true;
  }
  given_.notify_one();
}

void Hop::Take() {
  std::unique_lock<std::mutex> lock(mutex_);
  given_.wait(lock, [this] { return full_; });
  full_ = false;
}

int ConnectTo(const std::string &path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = Address(path);
  if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    abort();
  }
  return fd;
}

void ServeOn(const std::string &path, void (*serve)(int socket)) {
  const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = Address(path);
  if (bind(listening, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
      listen(listening, 16) != 0) {
    abort();
  }
  std::thread([listening, serve] {
    for (;;) {
      const int fd = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) {
        continue;
      }
      std::thread([fd, serve] {
        serve(fd);
        close(fd);
      }).detach();
    }
  }).detach();
}

void ServePings(int socket) {
  Hop requests;
  bool isOpen = true;
  std::thread worker([&] {
    for (;;) {
      requests.Take();
      if (!isOpen || !SendAll(socket, kReplySize)) {
        return;
      }
    }
  });
  while (ReceiveAll(socket, kRequestSize)) {
    requests.Give();
  }
  isOpen = false;
  requests.Give();
  worker.join();
}

void ServeCounts(int socket) {
  std::vector<char> bytes(size_t{256} << 10);
  uint64_t count = 0;
  ssize_t part;
  while ((part = recv(socket, bytes.data(), bytes.size(), 0)) > 0) {
    count += static_cast<uint64_t>(part);
  }
  send(socket, &count, sizeof count, MSG_NOSIGNAL);
}

PingClient::PingClient(const std::string &path)
    : socket_(ConnectTo(path)), reader_([this] {
        while (ReceiveAll(socket_, kReplySize)) {
          replies_.Give();
        }
      }) {}

PingClient::~PingClient() {
  shutdown(socket_, SHUT_RDWR);
  reader_.join();
  close(socket_);
}

void PingClient::RoundTrip() {
  if (!SendAll(socket_, kRequestSize)) {
    abort();
  }
  replies_.Take();
}
