#include "acceptor.h"

#include <unistd.h>

namespace platform::xpc {

namespace {

/// How long to wait when no descriptor is left; the socket would be ready all that time.
constexpr std::chrono::milliseconds kExhaustedPause(50);

}  // namespace

bool Acceptor::Start(const std::string &service, std::string *problem) {
  std::lock_guard<std::mutex> lock(mutex_);
  io_ = IoThread::Shared();
  if (!io_) {
    *problem = "no descriptors are left for the thread that reads and writes";
    return false;
  }
  if (OfferService(service, &service_, problem) != 0) {
    return false;
  }
  listener_ = evconnlistener_new(
      io_->base(),
      [](evconnlistener *, evutil_socket_t socket, sockaddr *, int, void *self) {
        static_cast<Acceptor *>(self)->OnAccepted(Descriptor(socket));
      },
      this, LEV_OPT_CLOSE_ON_EXEC | LEV_OPT_THREADSAFE | LEV_OPT_DISABLED, 0,
      service_.listening.get());
  if (!listener_) {
    WithdrawService(&service_);
    *problem = "there is no memory to offer the service " + service;
    return false;
  }
  evconnlistener_set_error_cb(
      listener_, [](evconnlistener *, void *self) { static_cast<Acceptor *>(self)->Pause(); });
  self_ = shared_from_this();
  evconnlistener_enable(listener_);
  return true;
}

void Acceptor::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (stopped_ || !listener_) {
    return;
  }
  stopped_ = true;
  WithdrawService(&service_);
  io_->Run([self = self_] { self->Release(); });
}

/// I/O thread.
void Acceptor::OnAccepted(Descriptor socket) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopped_) {
      return;
    }
  }
  if (PeerOf(socket).user != geteuid()) {
    return;
  }
  if (auto client = client_.lock()) {
    client->OnAccepted(std::move(socket));
  }
}

/// I/O thread, with libevent's lock held.
void Acceptor::Pause() {
  evconnlistener_disable(listener_);
  const auto resume = [self = self_] {
    if (self->listener_) {
      evconnlistener_enable(self->listener_);
    }
  };
  io_->Run(resume, kExhaustedPause);
}

/// I/O thread.
void Acceptor::Release() {
  std::shared_ptr<Acceptor> last;
  std::lock_guard<std::mutex> lock(mutex_);
  last = std::move(self_);
  evconnlistener_free(listener_);
  listener_ = nullptr;
  service_.listening.Reset();
}

}  // namespace platform::xpc
