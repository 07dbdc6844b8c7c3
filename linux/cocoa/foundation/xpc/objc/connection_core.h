// What a connection is besides its object: the state, the outstanding requests and the handlers. It
// outlives the object until everything outstanding has ended.

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#import <Foundation/Foundation.h>

#import "owner_link.h"
#import "protocol_methods.h"
#import "reply_block.h"
#include "transport/channel.h"
#include "wire/wire.h"

@class PlatformXPCInterface;

namespace platform::xpc {

class ConnectionCore : public Channel::Client, public std::enable_shared_from_this<ConnectionCore> {
 public:
  /// Where the peer is: a name, a listener of this process (what `connect` returns is one end of a
  /// new connection to it, or nothing), or a socket that was accepted.
  struct Target {
    std::string service;
    std::function<Descriptor()> connect;
    Descriptor accepted;
    enum { kService, kListener, kAccepted } kind;
  };

  ConnectionCore(Target target, id owner, long *references);
  ~ConnectionCore() override;

  /// Leads to the object as long as that is there.
  OwnerLink &owner() { return owner_; }

  void resume();
  void suspend();
  void invalidate();

  /// Encodes the message and hands it to the channel. Raises NSInvalidArgumentException when an
  /// argument cannot be encoded.
  /// @param arguments  Point to the method's arguments.
  /// @param errorHandler  A block on the heap, or nil.
  void sendMessage(const Method &method, PlatformXPCInterface *interface, void *const *arguments,
                   id errorHandler);

  /// The objects a connection is set up with. `Get` returns them autoreleased; `Set` retains, and
  /// after the invalidation ignores all but the remote interface.
  enum Part {
    kExportedInterface,
    kExportedObject,
    kRemoteInterface,
    kInterruption,
    kInvalidation,
    kParts
  };
  id get(Part part);
  void set(Part part, id object);

  /// Zeroes and highest values before there was one.
  Peer peer();

  /// The connection whose method or reply block runs on this thread, or nil.
  static NSXPCConnection *current();

  void onChange() override;

 private:
  enum class State { kFresh, kActive, kInterrupted, kInvalid };

  /// A request without its answer. Owns what it refers to.
  struct Request {
    id block = nil;
    const BlockType *type = nullptr;
    PlatformXPCInterface *interface = nil;
    const Method *method = nullptr;
    id errorHandler = nil;
    void release() const;
  };
  using Requests = std::map<uint64_t, Request>;  ///< In the order in which they were sent.

  void openChannel();
  void schedule();
  void drain();
  void handleFrame(const std::shared_ptr<Channel> &channel, const Channel::Received &received);
  const char *handleMessage(const std::shared_ptr<Channel> &channel, const Frame &frame);
  void handleReply(const Frame &frame);
  const char *decodeArguments(const Frame &frame, const Signature &signature,
                              PlatformXPCInterface *interface, const Method &method, bool ofReply,
                              Slot *slots);
  void handleEnd(const std::shared_ptr<Channel> &channel, Channel::End reason);
  void end(State state, NSInteger code);
  void failLater(id errorHandler, NSInteger code);
  NSString *serviceName() const;

  OwnerLink owner_;
  const dispatch_queue_t queue_;
  std::atomic<uint64_t> lastRequest_{0};

  std::mutex mutex_;
  Target target_;
  State state_ = State::kFresh;
  unsigned suspensions_ = 1;
  bool scheduled_ = false;
  bool again_ = false;  ///< There may be more to handle than the queue has seen.
  bool overflowLogged_ = false;
  bool unexpectedReplyLogged_ = false;
  std::shared_ptr<Channel> channel_;
  Peer peer_;
  Requests requests_;
  id parts_[kParts] = {};
  id keptOwner_ = nil;  ///< An accepted connection lives as long as it is active.
};

}  // namespace platform::xpc
