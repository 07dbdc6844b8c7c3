#import "connection_core.h"

#include <objc/message.h>

#include <utility>

#import "PlatformXPCInterface.h"
#import "wire/object_coding.h"

namespace platform::xpc {

namespace {

thread_local NSXPCConnection *currentConnection = nil;

/// Sets the current connection for as long as it lives.
class CurrentConnection {
 public:
  explicit CurrentConnection(id connection) : before_(currentConnection) {
    currentConnection = connection;
  }
  ~CurrentConnection() { currentConnection = before_; }

 private:
  NSXPCConnection *const before_;
};

/// Returns an error of NSCocoaErrorDomain, autoreleased, with texts in English.
/// @param code  One of the NSXPCConnection… codes.
/// @param service  The name of the service, or nil.
NSError *MakeError(NSInteger code, NSString *service) {
  NSString *to = service ? [@" to service named " stringByAppendingString:service] : @"";
  NSString *what = @"was invalidated";
  if (code == NSXPCConnectionInterrupted) {
    what = @"was interrupted";
  }
  if (code == NSXPCConnectionReplyInvalid) {
    what = @"received a reply that does not fit the block";
  }
  NSDictionary *info = [NSDictionary
      dictionaryWithObjectsAndKeys:@"Couldn’t communicate with a helper application.",
                                   NSLocalizedDescriptionKey,
                                   [NSString stringWithFormat:@"The connection%@ %@.", to, what],
                                   @"NSDebugDescription", nil];
  return [NSError errorWithDomain:NSCocoaErrorDomain code:code userInfo:info];
}

void RunHandler(id handler) {
  if (handler) {
    ((void (^)(void))handler)();
  }
}

void RunErrorHandler(id handler, NSError *error) {
  if (handler) {
    ((void (^)(NSError *))handler)(error);
  }
}

}  // namespace

void ConnectionCore::Request::release() const {
  [block release];
  [interface release];
  [errorHandler release];
}

ConnectionCore::ConnectionCore(Target target, id owner, long *references)
    : owner_(owner, references),
      queue_(dispatch_queue_create("NSXPCConnection", DISPATCH_QUEUE_SERIAL)),
      target_(std::move(target)),
      peer_(PeerOf(target_.accepted)) {}

ConnectionCore::~ConnectionCore() {
  if (channel_) {
    channel_->close();
  }
  for (id part : parts_) {
    [part release];
  }
  dispatch_release(queue_);
}

NSXPCConnection *ConnectionCore::current() { return currentConnection; }

NSString *ConnectionCore::serviceName() const {
  if (target_.kind != Target::kService) {
    return nil;
  }
  return [NSString stringWithUTF8String:target_.service.c_str()];
}

id ConnectionCore::get(Part part) {
  std::lock_guard<std::mutex> lock(mutex_);
  return [[parts_[part] retain] autorelease];
}

void ConnectionCore::set(Part part, id object) {
  id old;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ == State::kInvalid && part != kRemoteInterface) {
      return;
    }
    old = parts_[part];
    parts_[part] = [object retain];
  }
  [old release];
}

Peer ConnectionCore::peer() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (channel_ && channel_->peer().process) {
    peer_ = channel_->peer();
  }
  return peer_;
}

/// Call with the lock held.
void ConnectionCore::schedule() {
  again_ = true;
  if (scheduled_) {
    return;
  }
  scheduled_ = true;
  const auto self = shared_from_this();
  dispatch_async(queue_, ^{
    self->drain();
  });
}

void ConnectionCore::onChange() {
  std::lock_guard<std::mutex> lock(mutex_);
  schedule();
}

/// Call with the lock held.
void ConnectionCore::openChannel() {
  if (!channel_) {
    channel_ = std::make_shared<Channel>(weak_from_this());
  }
  bool opened = false;
  switch (target_.kind) {
    case Target::kService:
      opened = channel_->connect(target_.service);
      break;
    case Target::kListener:
      opened = channel_->adopt(target_.connect());
      break;
    case Target::kAccepted:
      opened = channel_->adopt(std::move(target_.accepted));
      break;
  }
  state_ = State::kActive;
  if (!opened) {
    schedule();
  }
}

void ConnectionCore::resume() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (suspensions_ == 0 || --suspensions_ > 0 || state_ == State::kInvalid) {
    return;
  }
  if (state_ == State::kFresh) {
    if (target_.kind == Target::kAccepted) {
      keptOwner_ = owner_.retain();
    }
    openChannel();
  }
  if (again_) {
    schedule();
  }
}

void ConnectionCore::suspend() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++suspensions_;
}

void ConnectionCore::invalidate() { end(State::kInvalid, NSXPCConnectionInvalid); }

void ConnectionCore::sendMessage(const Method &method, PlatformXPCInterface *interface,
                                 void *const *arguments, id errorHandler) {
  Request request;
  if (method.reply >= 0) {
    request.block = *static_cast<id *>(arguments[method.reply]);
    request.type = request.block ? FindTypeOfBlock(request.block) : nullptr;
    if (!request.type) {
      NSLog(@"XPC: %s is not sent: %s", method.name.c_str(),
            request.block ? "its reply block has types that cannot be sent"
                          : "it has no reply block");
      failLater(errorHandler, NSXPCConnectionReplyInvalid);
      return;
    }
  }

  uint64_t number = request.type ? ++lastRequest_ : 0;
  Writer writer;
  writer.begin(FrameKind::kMessage);
  const auto &types = method.signature->arguments();
  writer.putNumber(number);
  writer.putText(method.name);
  if (request.type) {
    writer.putText(SignatureOf(request.type).text());
  }
  writer.putNumber(types.size());
  for (size_t i = 0; i < types.size(); ++i) {
    EncodeArgument(&writer, types[i], arguments[i]);
  }
  if (!writer.finish()) {
    NSLog(@"XPC: %s is not sent: it is too large", method.name.c_str());
    failLater(errorHandler, NSXPCConnectionInvalid);
    return;
  }

  NSInteger failure = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ == State::kInvalid) {
      failure = NSXPCConnectionInvalid;
    } else {
      if (state_ == State::kInterrupted) {
        openChannel();
      } else if (!channel_) {
        channel_ = std::make_shared<Channel>(weak_from_this());
      }
      Channel::Sent sent = channel_->send(writer.data(), writer.size());
      if (sent == Channel::Sent::kFull) {
        failure = NSXPCConnectionInterrupted;
        if (!overflowLogged_) {
          overflowLogged_ = true;
          NSLog(@"XPC: the peer takes nothing and too much waits for it; messages are dropped");
        }
      } else if (number) {
        // With a channel that has just ended it fails together with all others.
        request.block = [request.block copy];
        request.interface = [interface retain];
        request.method = &method;
        request.errorHandler = [errorHandler retain];
        requests_.emplace(number, request);
      } else if (sent == Channel::Sent::kClosed) {
        failure = channel_->end() == Channel::End::kUnreachable ? NSXPCConnectionInvalid
                                                                : NSXPCConnectionInterrupted;
      }
    }
  }
  if (failure) {
    failLater(errorHandler, failure);
  }
}

void ConnectionCore::failLater(id errorHandler, NSInteger code) {
  if (!errorHandler) {
    return;
  }
  const auto self = shared_from_this();
  dispatch_async(queue_, ^{
    RunErrorHandler(errorHandler, MakeError(code, self->serviceName()));
  });
}

/// Queue.
void ConnectionCore::drain() {
  for (;;) {
    std::shared_ptr<Channel> channel;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (suspensions_ || state_ == State::kInvalid || !channel_) {
        scheduled_ = false;
        again_ = true;
        return;
      }
      channel = channel_;
      again_ = false;
    }
    // Asked first: what arrived before the end must not be overlooked.
    const Channel::End end = channel->end();
    Channel::Received received;
    if (channel->takeFrame(&received)) {
      @autoreleasepool {
        handleFrame(channel, received);
      }
      continue;
    }
    if (end != Channel::End::kNone) {
      handleEnd(channel, end);
      continue;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (!again_) {
      scheduled_ = false;
      return;
    }
  }
}

void ConnectionCore::handleFrame(const std::shared_ptr<Channel> &channel,
                                 const Channel::Received &received) {
  Frame frame;
  const char *problem =
      DecodePayload(received.kind, received.payload.data(), received.payload.size(), &frame);
  if (!problem) {
    if (received.kind == FrameKind::kMessage) {
      problem = handleMessage(channel, frame);
    } else {
      handleReply(frame);
    }
  }
  if (problem) {
    if (!channel->breakOff(problem)) {
      NSLog(@"XPC: a connection has ended: %s", problem);
    }
    Channel::Received dropped;
    while (channel->takeFrame(&dropped)) {
      continue;
    }
  }
}

/// Fills `slots`, zeroes before; the objects in it are owned by the caller, on failure too.
const char *ConnectionCore::decodeArguments(const Frame &frame, const Signature &signature,
                                            PlatformXPCInterface *interface, const Method &method,
                                            bool ofReply, Slot *slots) {
  const auto &types = signature.arguments();
  if (frame.argumentCount != types.size()) {
    return "the number of arguments is wrong";
  }
  const Item *item = frame.items.data();
  for (size_t i = 0; i < types.size(); ++i) {
    if (types[i].kind == TypeKind::kBlock || item->tag == Tag::kBlock) {
      if (types[i].kind != TypeKind::kBlock || item->tag != Tag::kBlock) {
        return "a reply block is at a wrong place";
      }
      ++item;
      continue;
    }
    NSSet *allowed = [interface classesForMethod:&method argument:i ofReply:ofReply];
    const char *problem = DecodeArgument(&item, types[i], allowed, &slots[i]);
    if (problem) {
      return problem;
    }
  }
  return nullptr;
}

namespace {

void ReleaseArguments(const Signature &signature, Slot *slots) {
  const auto &types = signature.arguments();
  for (size_t i = 0; i < types.size(); ++i) {
    if (types[i].kind == TypeKind::kObject || types[i].kind == TypeKind::kBlock) {
      [static_cast<id>(slots[i].pointer) release];
    }
  }
}

}  // namespace

const char *ConnectionCore::handleMessage(const std::shared_ptr<Channel> &channel,
                                          const Frame &frame) {
  id owner = owner_.retain();
  if (!owner) {
    return nullptr;
  }
  PlatformXPCInterface *interface;
  id object;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    interface = [parts_[kExportedInterface] retain];
    object = [parts_[kExportedObject] retain];
  }

  const char *problem = nullptr;
  const Method *method = interface ? [interface methods]->find(frame.selector) : nullptr;
  const BlockType *type = nullptr;
  if (!method || ![object respondsToSelector:method->selector]) {
    problem = "a message has an unknown selector";
  } else if ((method->reply >= 0) != (frame.request != 0)) {
    problem = "a message has a reply block too many or too few";
  } else if (method->reply >= 0) {
    type = method->replyType;
    if (!type) {
      problem = "what the reply block takes is not known here: see PlatformReplyTypes.h";
    } else {
      const auto claimed = Signature::parse(Signature::Form::kBlock, frame.replySignature);
      if (!claimed || !claimed->takesKindsOf(SignatureOf(type))) {
        problem = "a reply block has other types than the method's";
      }
    }
  }

  if (!problem) {
    const Signature &signature = *method->signature;
    Slot slots[kMaximumArguments] = {};
    @try {
      problem = decodeArguments(frame, signature, interface, *method, false, slots);
      if (!problem && type) {
        slots[method->reply].pointer = MakeReplyBlock(type, channel, frame.request, frame.selector);
        if (!slots[method->reply].pointer) {
          problem = "there is no memory for a reply block";
        }
      }
      if (!problem) {
        CurrentConnection current(owner);
        SEL selector = method->selector;
        void *arguments[2 + kMaximumArguments] = {&object, &selector};
        for (size_t i = 0; i < signature.arguments().size(); ++i) {
          arguments[2 + i] = &slots[i];
        }
        ffi_call(signature.cif(), reinterpret_cast<void (*)()>(objc_msg_lookup(object, selector)),
                 nullptr, arguments);
      }
    } @catch (id exception) {
      NSLog(@"XPC: %s raised %@", method->name.c_str(), exception);
      problem = "a method raised an exception";
    }
    ReleaseArguments(signature, slots);
  }
  [object release];
  [interface release];
  [owner release];
  return problem;
}

void ConnectionCore::handleReply(const Frame &frame) {
  Request request;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = requests_.find(frame.request);
    if (found == requests_.end()) {
      if (!unexpectedReplyLogged_) {
        NSLog(@"XPC: replies to no outstanding request are ignored");
      }
      unexpectedReplyLogged_ = true;
      return;
    }
    request = found->second;
    requests_.erase(found);
  }
  id owner = owner_.retain();
  const Signature &signature = SignatureOf(request.type);
  const char *name = request.method->name.c_str();
  Slot slots[kMaximumArguments] = {};
  NSInteger code = NSXPCConnectionInterrupted;
  const char *problem = "the receiver has released its reply block";
  @try {
    if (frame.kind == FrameKind::kReply) {
      code = NSXPCConnectionReplyInvalid;
      problem = decodeArguments(frame, signature, request.interface, *request.method, true, slots);
    }
  } @catch (id) {
    problem = "an object cannot be made";
  } @
  try {
    CurrentConnection current(owner);
    if (problem) {
      NSLog(@"XPC: there is no reply to %s: %s", name, problem);
      RunErrorHandler(request.errorHandler, MakeError(code, serviceName()));
    } else {
      CallBlock(request.block, request.type, slots);
    }
  } @catch (id exception) {
    NSLog(@"XPC: handling the reply to %s raised %@", name, exception);
  }
  ReleaseArguments(signature, slots);
  request.release();
  [owner release];
}

/// Queue.
void ConnectionCore::handleEnd(const std::shared_ptr<Channel> &channel, Channel::End reason) {
  std::string problem = channel->problem();
  bool unreachable = reason == Channel::End::kUnreachable;
  if (!problem.empty()) {
    NSLog(@"XPC: %s%s", unreachable ? "" : "a connection ends: ", problem.c_str());
  }
  // Only a service can be there again.
  bool forGood = unreachable || target_.kind != Target::kService;
  NSInteger code = unreachable ? NSXPCConnectionInvalid : NSXPCConnectionInterrupted;
  end(forGood ? State::kInvalid : State::kInterrupted, code);
}

/// Ends the channel, and with `state` kInvalid the connection; outstanding requests fail with
/// `code`. Handlers run later on the queue.
void ConnectionCore::end(State state, NSInteger code) {
  // Until the end, or an interruption and an invalidation would come in the wrong order.
  std::lock_guard<std::mutex> lock(mutex_);
  if (state_ == State::kInvalid) {
    return;
  }
  state_ = state;
  if (channel_) {
    if (channel_->peer().process) {
      peer_ = channel_->peer();
    }
    channel_->close();
    channel_.reset();
  }
  const bool forGood = state == State::kInvalid;
  const auto self = shared_from_this();
  const Requests requests = std::exchange(requests_, {});
  const id handler = parts_[forGood ? kInvalidation : kInterruption];
  std::vector<id> givenUp;
  if (forGood) {
    // The interfaces stay: a proxy may be asked for at any time.
    for (Part part : {kExportedObject, kInterruption, kInvalidation}) {
      givenUp.push_back(std::exchange(parts_[part], nil));
    }
    givenUp.push_back(std::exchange(keptOwner_, nil));
    target_.accepted.reset();
  }
  dispatch_async(queue_, ^{
    NSError *error = MakeError(code, self->serviceName());
    for (const auto &[number, request] : requests) {
      RunErrorHandler(request.errorHandler, error);
      request.release();
    }
    RunHandler(handler);
    for (id object : givenUp) {
      [object release];
    }
  });
}

}  // namespace platform::xpc
