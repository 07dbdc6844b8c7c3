// What a listener is besides its object.

#ifndef PLATFORM_XPC_LISTENER_CORE_H
#define PLATFORM_XPC_LISTENER_CORE_H

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#import <Foundation/Foundation.h>

#include "owner_link.h"
#include "transport/acceptor.h"

namespace platform::xpc {

class ListenerCore : public Acceptor::Client, public std::enable_shared_from_this<ListenerCore> {
 public:
  /// @param service  The name, or "" for one that is reached through `ConnectHere` only.
  ListenerCore(std::string service, std::shared_ptr<OwnerLink> owner);
  ~ListenerCore() override;

  void Resume();
  void Suspend();
  void Invalidate();

  /// Not retained.
  id<NSXPCListenerDelegate> delegate();
  void SetDelegate(id<NSXPCListenerDelegate> delegate);

  /// Returns one end of a new connection, or an empty descriptor when the listener is invalid.
  Descriptor ConnectHere();

  void OnAccepted(Descriptor socket) override;

 private:
  void Schedule();
  void AcceptAll();

  const std::string service_;
  const std::shared_ptr<OwnerLink> owner_;
  const dispatch_queue_t queue_;

  std::mutex mutex_;
  unsigned suspensions_ = 1;
  bool started_ = false;
  bool invalid_ = false;
  id<NSXPCListenerDelegate> delegate_ = nil;
  std::shared_ptr<Acceptor> acceptor_;
  std::vector<Descriptor> waiting_;
};

}  // namespace platform::xpc

#endif
