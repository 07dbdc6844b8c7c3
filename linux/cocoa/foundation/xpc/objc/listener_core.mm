#import "listener_core.h"

#include <sys/socket.h>
#include <unistd.h>

#import "PlatformXPCConnection.h"

namespace platform::xpc {

namespace {

/// How long to wait when no descriptor is left; the socket would be ready all that time.
constexpr std::chrono::milliseconds kExhaustedPause(50);

}  // namespace

ListenerCore::ListenerCore(std::string service, id owner, long *references)
    : service_(std::move(service)),
      owner_(owner, references),
      queue_(dispatch_queue_create("NSXPCListener", DISPATCH_QUEUE_SERIAL)) {}

ListenerCore::~ListenerCore() { dispatch_release(queue_); }

void ListenerCore::resume() {
  std::string problem;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (suspensions_ == 0 || --suspensions_ > 0 || invalid_) {
      return;
    }
    if (!started_) {
      started_ = true;
      invalid_ = !service_.empty() && !listen(&problem);
    }
    if (!waiting_.empty()) {
      schedule();
    }
  }
  if (!problem.empty()) {
    NSLog(@"XPC: %s", problem.c_str());
  }
}

/// Call with the lock held. Returns false with a line for the log.
bool ListenerCore::listen(std::string *problem) {
  io_ = IoThread::shared();
  if (!io_) {
    *problem = "no descriptors are left for the thread that reads and writes";
    return false;
  }
  if (OfferService(service_, &socket_, problem) != 0) {
    return false;
  }
  listener_ = evconnlistener_new(
      io_->base(),
      [](evconnlistener *, evutil_socket_t socket, sockaddr *, int, void *self) {
        static_cast<ListenerCore *>(self)->onAccepted(Descriptor(socket));
      },
      this, LEV_OPT_CLOSE_ON_EXEC | LEV_OPT_THREADSAFE | LEV_OPT_DISABLED, 0,
      socket_.listening.get());
  if (!listener_) {
    WithdrawService(&socket_);
    *problem = "there is no memory to offer the service " + service_;
    return false;
  }
  evconnlistener_set_error_cb(
      listener_, [](evconnlistener *, void *self) { static_cast<ListenerCore *>(self)->pause(); });
  self_ = shared_from_this();
  evconnlistener_enable(listener_);
  return true;
}

void ListenerCore::suspend() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++suspensions_;
}

void ListenerCore::invalidate() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!invalid_ && listener_) {
    WithdrawService(&socket_);
    io_->run([self = self_] { self->release(); });
  }
  invalid_ = true;
  delegate_ = nil;
  waiting_.clear();
}

/// It may be given up on another thread while this one asks it.
id<NSXPCListenerDelegate> ListenerCore::delegate() {
  std::lock_guard<std::mutex> lock(mutex_);
  return [[delegate_ retain] autorelease];
}

void ListenerCore::setDelegate(id<NSXPCListenerDelegate> delegate) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!invalid_) {
    delegate_ = delegate;
  }
}

Descriptor ListenerCore::connectHere() {
  int ends[2];
  std::lock_guard<std::mutex> lock(mutex_);
  if (invalid_ || socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) {
    return Descriptor();
  }
  waiting_.emplace_back(ends[0]);
  schedule();
  return Descriptor(ends[1]);
}

/// I/O thread.
void ListenerCore::onAccepted(Descriptor socket) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!invalid_ && PeerOf(socket).user == geteuid()) {
    waiting_.push_back(std::move(socket));
    schedule();
  }
}

/// I/O thread, with libevent's lock held.
void ListenerCore::pause() {
  evconnlistener_disable(listener_);
  const auto resume = [self = self_] {
    if (self->listener_) {
      evconnlistener_enable(self->listener_);
    }
  };
  io_->run(resume, kExhaustedPause);
}

/// I/O thread. What nobody has accepted is dropped.
void ListenerCore::release() {
  std::shared_ptr<ListenerCore> last;
  std::lock_guard<std::mutex> lock(mutex_);
  last = std::move(self_);
  evconnlistener_free(listener_);
  listener_ = nullptr;
  socket_.listening.reset();
}

/// Call with the lock held.
void ListenerCore::schedule() {
  if (suspensions_) {
    return;
  }
  const auto self = shared_from_this();
  dispatch_async(queue_, ^{
    self->acceptAll();
  });
}

/// Queue.
void ListenerCore::acceptAll() {
  std::vector<Descriptor> sockets;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (suspensions_) {
      return;
    }
    sockets.swap(waiting_);
  }
  NSXPCListener *owner = owner_.retain();
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
