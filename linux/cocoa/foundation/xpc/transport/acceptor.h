// A listening socket.

#ifndef PLATFORM_XPC_ACCEPTOR_H
#define PLATFORM_XPC_ACCEPTOR_H

#include <event2/listener.h>

#include <memory>
#include <mutex>
#include <string>

#include "io_thread.h"
#include "service_directory.h"

namespace platform::xpc {

class Acceptor : public std::enable_shared_from_this<Acceptor> {
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

 private:
  void OnAccepted(Descriptor socket);
  void Pause();
  void Release();

  const std::weak_ptr<Client> client_;
  std::mutex mutex_;
  IoThread *io_ = nullptr;
  evconnlistener *listener_ = nullptr;  ///< Until `Release`.
  std::shared_ptr<Acceptor> self_;      ///< While the I/O thread may call.
  bool stopped_ = false;
  ServiceSocket service_;
};

}  // namespace platform::xpc

#endif
