// A listening socket.

#ifndef PLATFORM_XPC_ACCEPTOR_H
#define PLATFORM_XPC_ACCEPTOR_H

#include <memory>
#include <mutex>
#include <string>

#include "io_thread.h"
#include "service_directory.h"

namespace platform::xpc {

class Acceptor : public IoSource, public std::enable_shared_from_this<Acceptor> {
 public:
  class Client {
   public:
    virtual ~Client() = default;
    /// A peer of the same user has connected. I/O thread; must only hand the socket on.
    virtual void OnAccepted(Descriptor socket) = 0;
  };

  explicit Acceptor(std::weak_ptr<Client> client) : client_(std::move(client)) {}

  /// Offers `service`. Returns false with a line for the log.
  bool Start(const std::string &service, std::string *problem);
  /// Gives the name free. Connections that nobody has accepted are dropped.
  void Stop();

  void OnReady() override;
  void OnKick() override;
  size_t Unsent() const override { return 0; }

 private:
  const std::weak_ptr<Client> client_;
  std::mutex mutex_;
  IoThread *io_ = nullptr;
  uint64_t number_ = 0;
  bool pausing_ = false;
  bool stopped_ = false;
  ServiceSocket service_;
};

}  // namespace platform::xpc

#endif
