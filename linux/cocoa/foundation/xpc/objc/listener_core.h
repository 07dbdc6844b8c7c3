// What a listener is besides its object.

#include <event2/listener.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#import <Foundation/Foundation.h>

#import "owner_link.h"
#include "transport/io_thread.h"
#include "transport/service_directory.h"

namespace platform::xpc {

class ListenerCore : public std::enable_shared_from_this<ListenerCore> {
 public:
  /// @param service  The name, or "" for one that is reached through `ConnectHere` only.
  ListenerCore(std::string service, id owner, long *references);
  ~ListenerCore();

  /// Leads to the object as long as that is there.
  OwnerLink &owner() { return owner_; }

  void resume();
  void suspend();
  void invalidate();

  /// Not retained.
  id<NSXPCListenerDelegate> delegate();
  void setDelegate(id<NSXPCListenerDelegate> delegate);

  /// Returns one end of a new connection, or an empty descriptor when the listener is invalid.
  Descriptor connectHere();

 private:
  bool listen(std::string *problem);
  void onAccepted(Descriptor socket);
  void pause();
  void release();
  void schedule();
  void acceptAll();

  const std::string service_;
  OwnerLink owner_;
  const dispatch_queue_t queue_;

  std::mutex mutex_;
  unsigned suspensions_ = 1;
  bool started_ = false;
  bool invalid_ = false;
  id<NSXPCListenerDelegate> delegate_ = nil;
  IoThread *io_ = nullptr;
  evconnlistener *listener_ = nullptr;  ///< Until `release`.
  std::shared_ptr<ListenerCore> self_;  ///< While the I/O thread may call.
  ServiceSocket socket_;
  std::vector<Descriptor> waiting_;
};

}  // namespace platform::xpc
