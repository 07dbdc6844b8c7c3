#include "acceptor.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace platform::xpc {

namespace {

/// How long to wait when no descriptor is left; the socket would be ready all that time.
constexpr std::chrono::milliseconds kExhaustedPause(50);

}  // namespace

bool Acceptor::Start(const std::string &service, std::string *problem) {
  std::lock_guard<std::mutex> lock(mutex_);
  io_ = IoThread::Shared();
  if (!io_) {
    *problem = "no descriptors are left for the thread that waits for connections";
    return false;
  }
  if (OfferService(service, &service_, problem) != 0) return false;
  number_ = io_->Add(shared_from_this());
  io_->Watch(number_, service_.listening.get(), POLLIN);
  return true;
}

void Acceptor::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (stopped_ || !number_) return;
  stopped_ = true;
  io_->Watch(number_, service_.listening.get(), 0);
  WithdrawService(&service_);
  io_->Remove(number_);
}

void Acceptor::OnReady() {
  for (;;) {
    Descriptor socket;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (stopped_) return;
      socket = Descriptor(accept4(service_.listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!socket) {
        if (errno == EINTR || errno == ECONNABORTED) continue;
        if (errno != EAGAIN) {
          io_->Watch(number_, service_.listening.get(), 0);
          pausing_ = true;
          io_->KickAfter(kExhaustedPause, shared_from_this());
        }
        return;
      }
    }
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 ||
        peer.uid != geteuid()) {
      continue;
    }
    if (auto client = client_.lock()) client->OnAccepted(std::move(socket));
  }
}

void Acceptor::OnKick() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (stopped_ || !pausing_) return;
  pausing_ = false;
  io_->Watch(number_, service_.listening.get(), POLLIN);
}

}  // namespace platform::xpc
