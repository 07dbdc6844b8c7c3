#include "channel.h"

#include <event2/buffer.h>
#include <event2/event.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace platform::xpc {

namespace {

constexpr size_t kUnsentLimit = size_t{64} << 20;
/// Received bytes beyond which reading pauses until the client has taken them (back-pressure).
constexpr size_t kReadyLimit = size_t{1} << 20;
constexpr std::chrono::milliseconds kLingerTime(2000);

}  // namespace

Channel::Channel(std::weak_ptr<Client> client)
    : client_(std::move(client)), io_(IoThread::shared()) {
  // Callbacks without libevent's lock: they take this channel's, which senders take first.
  if (io_) {
    stream_ = bufferevent_socket_new(io_->base(), -1,
                                     BEV_OPT_CLOSE_ON_FREE | BEV_OPT_THREADSAFE |
                                         BEV_OPT_DEFER_CALLBACKS | BEV_OPT_UNLOCK_CALLBACKS);
  }
  if (stream_) {
    io_->flushAtExit(bufferevent_get_output(stream_));
  }
}

Channel::~Channel() {
  // One that was open has been released by the I/O thread.
  if (!stream_) {
    return;
  }
  dropUnsent();
  bufferevent_free(stream_);
}

bool Channel::connect(const std::string &service) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (state_ != State::kIdle) {
    return end_ == End::kNone;
  }
  if (stream_) {
    state_ = State::kConnecting;
    service_ = service;
    tryToConnect();
  } else {
    finish(End::kUnreachable, "no descriptors are left for the thread that reads and writes");
  }
  return end_ == End::kNone;
}

bool Channel::adopt(Descriptor socket) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (state_ != State::kIdle) {
    return end_ == End::kNone;
  }
  if (stream_ && socket) {
    open(std::move(socket));
  } else {
    finish(End::kUnreachable, {});
  }
  return end_ == End::kNone;
}

/// Call with the lock held, in state kConnecting.
void Channel::tryToConnect() {
  std::string problem;
  const int error = ConnectToService(service_, &connecting_, &problem);
  if (error == 0) {
    open(std::move(connecting_));
  } else if (error == EAGAIN) {
    const std::chrono::milliseconds pause(1 << std::min(tries_++, 6u));
    io_->run([self = shared_from_this()] { self->retryToConnect(); }, pause);
  } else {
    finish(End::kUnreachable, std::move(problem));
  }
}

/// I/O thread.
void Channel::retryToConnect() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != State::kConnecting) {
      return;
    }
    tryToConnect();
    if (state_ != State::kEnded) {
      return;
    }
  }
  notifyClient();
}

/// Call with the lock held.
void Channel::open(Descriptor socket) {
  peer_ = PeerOf(socket);
  state_ = State::kOpen;
  self_ = shared_from_this();
  bufferevent_setcb(
      stream_, [](bufferevent *, void *self) { static_cast<Channel *>(self)->onReadable(); },
      [](bufferevent *, void *self) { static_cast<Channel *>(self)->onWritten(); },
      [](bufferevent *, short what, void *self) {
        static_cast<Channel *>(self)->onEvent(what, EVUTIL_SOCKET_ERROR());
      },
      this);
  bufferevent_setfd(stream_, socket.take());
  bufferevent_enable(stream_, EV_READ | EV_WRITE);
}

Channel::Sent Channel::send(const uint8_t *frame, size_t length) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (state_ != State::kIdle && state_ != State::kConnecting && state_ != State::kOpen) {
    return Sent::kClosed;
  }
  if (!stream_ || writeFailed_) {
    return Sent::kYes;
  }
  // Held while the I/O thread writes, too.
  bufferevent_lock(stream_);
  const size_t waiting = unsent();
  const bool fits = !waiting || waiting + length <= kUnsentLimit;
  ssize_t written = 0;
  if (state_ == State::kOpen && !waiting) {
    written = ::send(bufferevent_getfd(stream_), frame, length, MSG_NOSIGNAL | MSG_DONTWAIT);
  }
  // An error comes again on the I/O thread, which first reads what the peer sent before it closed.
  const size_t done = static_cast<size_t>(std::max<ssize_t>(written, 0));
  if (fits && done < length) {
    bufferevent_write(stream_, frame + done, length - done);
  }
  bufferevent_unlock(stream_);
  return fits ? Sent::kYes : Sent::kFull;
}

/// Call with the lock held, while there is a stream.
size_t Channel::unsent() const { return evbuffer_get_length(bufferevent_get_output(stream_)); }

/// Call with the lock held, while there is a stream.
void Channel::dropUnsent() {
  writeFailed_ = true;
  evbuffer *output = bufferevent_get_output(stream_);
  bufferevent_disable(stream_, EV_WRITE);
  bufferevent_lock(stream_);
  evbuffer_unfreeze(output, 1);
  evbuffer_drain(output, evbuffer_get_length(output));
  bufferevent_unlock(stream_);
}

/// I/O thread.
void Channel::onReadable() {
  bool changed = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != State::kOpen) {
      return;
    }
    evbuffer *input = bufferevent_get_input(stream_);
    uint8_t header[kHeaderSize];
    while (evbuffer_copyout(input, header, sizeof header) == sizeof header) {
      uint32_t length = 0;
      Received frame;
      if (const char *wrong = DecodeHeader(header, &length, &frame.kind)) {
        finish(End::kBroken, wrong);
        changed = true;
        break;
      }
      if (evbuffer_get_length(input) - sizeof header < length) {
        break;
      }
      try {
        frame.payload.resize(length);
      } catch (const std::bad_alloc &) {
        finish(End::kBroken, "there is no memory for a frame");
        changed = true;
        break;
      }
      evbuffer_drain(input, sizeof header);
      evbuffer_remove(input, frame.payload.data(), length);
      readySize_ += sizeof header + length;
      ready_.push_back(std::move(frame));
      changed = true;
    }
    if (readySize_ > kReadyLimit) {
      bufferevent_disable(stream_, EV_READ);
    }
  }
  if (changed) {
    notifyClient();
  }
}

/// I/O thread.
void Channel::onWritten() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != State::kLingering || unsent()) {
      return;
    }
  }
  release();
}

/// I/O thread.
void Channel::onEvent(short what, int error) {
  bool ends;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    // The peer may have sent something before it closed: the channel lives until that is read.
    if (what & BEV_EVENT_WRITING) {
      dropUnsent();
    }
    ends = state_ == State::kOpen && (what & BEV_EVENT_READING);
    if (ends) {
      finishReading(what & BEV_EVENT_ERROR ? error : 0);
    }
  }
  ends ? notifyClient() : onWritten();
}

/// Call with the lock held.
void Channel::finishReading(int error) {
  // A peer that goes while something waits for it unread resets the connection.
  if (error && error != ECONNRESET && error != EPIPE) {
    finish(End::kBroken, std::strerror(error));
  } else if (evbuffer_get_length(bufferevent_get_input(stream_))) {
    finish(End::kBroken, "the last frame is truncated");
  } else {
    finish(End::kPeerClosed, {});
  }
}

bool Channel::takeFrame(Received *frame) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (ready_.empty()) {
    return false;
  }
  *frame = std::move(ready_.front());
  ready_.pop_front();
  const bool rested = readySize_ > kReadyLimit;
  readySize_ -= kHeaderSize + frame->payload.size();
  if (rested && readySize_ <= kReadyLimit && state_ == State::kOpen) {
    bufferevent_enable(stream_, EV_READ);
  }
  return true;
}

/// Call with the lock held, in state kIdle, kConnecting or kOpen, then `NotifyClient` without it.
void Channel::finish(End end, std::string problem) {
  state_ = State::kEnded;
  end_ = end;
  problem_ = std::move(problem);
  connecting_.reset();
  if (!stream_) {
    return;
  }
  dropUnsent();
  bufferevent_disable(stream_, EV_READ);
  // The peer of a broken channel must hear of it now, not when the last frames here are handled.
  if (end == End::kBroken) {
    shutdown(bufferevent_getfd(stream_), SHUT_RDWR);
  }
}

bool Channel::breakOff(const std::string &problem) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != State::kOpen) {
      return false;
    }
    finish(End::kBroken, problem);
  }
  notifyClient();
  return true;
}

void Channel::notifyClient() {
  if (auto client = client_.lock()) {
    client->onChange();
  }
}

Channel::End Channel::end() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return end_;
}

std::string Channel::problem() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return problem_;
}

Peer Channel::peer() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return peer_;
}

void Channel::close() {
  std::lock_guard<std::mutex> lock(mutex_);
  ready_.clear();
  readySize_ = 0;
  if (state_ == State::kLingering || state_ == State::kClosed) {
    return;
  }
  const bool lingers = state_ == State::kOpen && unsent();
  state_ = lingers ? State::kLingering : State::kClosed;
  connecting_.reset();
  if (!stream_) {
    return;
  }
  if (!lingers) {
    dropUnsent();
  }
  if (!self_) {
    return;
  }
  bufferevent_disable(stream_, EV_READ);
  shutdown(bufferevent_getfd(stream_), lingers ? SHUT_RD : SHUT_RDWR);
  io_->run([self = self_] { self->release(); },
           lingers ? kLingerTime : std::chrono::milliseconds(0));
}

/// I/O thread.
void Channel::release() {
  std::shared_ptr<Channel> last;
  std::lock_guard<std::mutex> lock(mutex_);
  state_ = State::kClosed;
  if (!stream_) {
    return;
  }
  last = std::move(self_);
  dropUnsent();
  bufferevent_free(stream_);
  stream_ = nullptr;
}

}  // namespace platform::xpc
