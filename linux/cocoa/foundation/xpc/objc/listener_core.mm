#include "listener_core.h"

#include <sys/socket.h>

#import "PlatformXPCConnection.h"

namespace platform::xpc {

ListenerCore::ListenerCore(std::string service, std::shared_ptr<OwnerLink> owner)
    : service_(std::move(service)),
      owner_(std::move(owner)),
      queue_(dispatch_queue_create("NSXPCListener", DISPATCH_QUEUE_SERIAL)) {}

ListenerCore::~ListenerCore() {
  if (acceptor_) {
    acceptor_->Stop();
  }
  dispatch_release(queue_);
}

void ListenerCore::Resume() {
  std::string problem;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (suspensions_ == 0 || --suspensions_ > 0 || invalid_) {
      return;
    }
    if (!started_) {
      started_ = true;
      if (!service_.empty()) {
        acceptor_ = std::make_shared<Acceptor>(weak_from_this());
        invalid_ = !acceptor_->Start(service_, &problem);
      }
    }
    if (!waiting_.empty()) {
      Schedule();
    }
  }
  if (!problem.empty()) {
    NSLog(@"XPC: %s", problem.c_str());
  }
}

void ListenerCore::Suspend() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++suspensions_;
}

void ListenerCore::Invalidate() {
  std::lock_guard<std::mutex> lock(mutex_);
  invalid_ = true;
  delegate_ = nil;
  waiting_.clear();
  if (acceptor_) {
    acceptor_->Stop();
  }
}

/// It may be given up on another thread while this one asks it.
id<NSXPCListenerDelegate> ListenerCore::delegate() {
  std::lock_guard<std::mutex> lock(mutex_);
  return [[delegate_ retain] autorelease];
}

void ListenerCore::SetDelegate(id<NSXPCListenerDelegate> delegate) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!invalid_) {
    delegate_ = delegate;
  }
}

Descriptor ListenerCore::ConnectHere() {
  int ends[2];
  std::lock_guard<std::mutex> lock(mutex_);
  if (invalid_ || socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) {
    return Descriptor();
  }
  waiting_.emplace_back(ends[0]);
  Schedule();
  return Descriptor(ends[1]);
}

void ListenerCore::OnAccepted(Descriptor socket) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (invalid_) {
    return;
  }
  waiting_.push_back(std::move(socket));
  Schedule();
}

/// Call with the lock held.
void ListenerCore::Schedule() {
  if (suspensions_) {
    return;
  }
  dispatch_async_f(queue_, new std::shared_ptr<ListenerCore>(shared_from_this()),
                   [](void *context) {
                     std::unique_ptr<std::shared_ptr<ListenerCore>> core(
                         static_cast<std::shared_ptr<ListenerCore> *>(context));
                     @autoreleasepool {
                       (*core)->AcceptAll();
                     }
                   });
}

/// Queue.
void ListenerCore::AcceptAll() {
  std::vector<Descriptor> sockets;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (suspensions_) {
      return;
    }
    sockets.swap(waiting_);
  }
  NSXPCListener *owner = owner_->Retain();
  if (!owner) {
    return;
  }
  for (Descriptor &socket : sockets) {
    PlatformXPCConnection *connection =
        [[PlatformXPCConnection alloc] initWithAcceptedSocket:std::move(socket)];
    id<NSXPCListenerDelegate> receiver = delegate();
    BOOL taken = NO;
    @try {
      taken = [receiver respondsToSelector:@selector(listener:shouldAcceptNewConnection:)] &&
              [receiver listener:owner shouldAcceptNewConnection:connection];
    } @catch (id exception) {
      NSLog(@"XPC: accepting a connection raised %@", exception);
    }
    if (!taken) {
      [connection invalidate];
    }
    [connection release];
  }
  [owner release];
}

}  // namespace platform::xpc
