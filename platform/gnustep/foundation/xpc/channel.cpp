#include "channel.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "wire.h"

namespace platform::xpc {

namespace {

constexpr size_t kUnsentLimit = size_t{64} << 20;
constexpr size_t kChunkSize = size_t{64} << 10;
constexpr size_t kReceiveSize = size_t{256} << 10;
/// Arrived bytes beyond which reading rests until the client has taken them.
constexpr size_t kReadyLimit = size_t{1} << 20;
constexpr std::chrono::milliseconds kLingerTime(2000);
constexpr std::chrono::milliseconds kLongestRetry(64);

}  // namespace

Channel::Channel(std::weak_ptr<Client> client) : client_(std::move(client)) {}

Channel::~Channel() = default;

bool Channel::Connect(const std::string &service) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (state_ != State::kIdle) return end_ == End::kNone;
  service_ = service;
  io_ = IoThread::Shared();
  if (io_) {
    state_ = State::kConnecting;
    TryToConnect();
  } else {
    Finish(End::kUnreachable, "no descriptors are left for the thread that waits for connections");
  }
  return end_ == End::kNone;
}

bool Channel::Adopt(Descriptor socket) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (state_ != State::kIdle) return end_ == End::kNone;
  io_ = IoThread::Shared();
  if (io_ && socket) {
    Open(std::move(socket));
  } else {
    Finish(End::kUnreachable, {});
  }
  return end_ == End::kNone;
}

/// Call with the lock held, in state kConnecting.
void Channel::TryToConnect() {
  std::string problem;
  Descriptor socket = std::move(socket_);
  int error = ConnectToService(service_, &socket, &problem);
  if (error == 0) {
    Open(std::move(socket));
  } else if (error == EAGAIN) {
    socket_ = std::move(socket);
    if (!number_) number_ = io_->Add(shared_from_this());
    unsigned shift = std::min(tries_++, 6u);
    io_->KickAfter(std::min(std::chrono::milliseconds(1 << shift), kLongestRetry),
                   shared_from_this());
  } else {
    Finish(End::kUnreachable, std::move(problem));
  }
}

/// Call with the lock held.
void Channel::Open(Descriptor socket) {
  socket_ = std::move(socket);
  ucred credentials{};
  socklen_t length = sizeof credentials;
  if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0) {
    peer_ = {credentials.pid, credentials.uid, credentials.gid};
  }
  state_ = State::kOpen;
  if (!number_) number_ = io_->Add(shared_from_this());
  Interest();
  if (!out_.empty() && !flushing_) {
    flushing_ = true;
    io_->Kick(shared_from_this());
  }
}

Channel::Sent Channel::Send(const uint8_t *frame, size_t length, bool now) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (end_ != End::kNone || state_ == State::kLingering || state_ == State::kClosed) {
    return Sent::kClosed;
  }
  if (writeFailed_) return Sent::kYes;
  if (unsent_ && unsent_ + length > kUnsentLimit) return Sent::kFull;

  if (state_ == State::kOpen && !flushing_) {
    // Of a burst of messages that nobody waits for, the first goes out at once; the others leave
    // their system call to the I/O thread. The coarse clock costs next to nothing.
    timespec tick;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &tick);
    if (now || tick.tv_nsec != lastDirectNanosecond_ || tick.tv_sec != lastDirectSecond_) {
      lastDirectSecond_ = tick.tv_sec;
      lastDirectNanosecond_ = tick.tv_nsec;
      ssize_t sent = send(socket_.get(), frame, length, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (sent < 0) {
        if (errno != EAGAIN && errno != EINTR) {
          WriteError(errno);
          return Sent::kYes;
        }
        sent = 0;
      }
      if (static_cast<size_t>(sent) == length) return Sent::kYes;
      frame += sent;
      length -= static_cast<size_t>(sent);
      wantWrite_ = true;
    }
  }
  Append(frame, length);
  if (state_ == State::kOpen && !flushing_) {
    flushing_ = true;
    if (wantWrite_) {
      Interest();
    } else {
      io_->Kick(shared_from_this());
    }
  }
  return Sent::kYes;
}

/// Call with the lock held.
void Channel::Append(const uint8_t *bytes, size_t length) {
  unsent_ += length;
  while (length) {
    if (out_.empty() || out_.back().size == out_.back().capacity) {
      Chunk chunk;
      chunk.capacity = kChunkSize;
      chunk.bytes.reset(new uint8_t[kChunkSize]);
      out_.push_back(std::move(chunk));
    }
    Chunk &last = out_.back();
    size_t part = std::min(length, last.capacity - last.size);
    std::memcpy(last.bytes.get() + last.size, bytes, part);
    last.size += part;
    bytes += part;
    length -= part;
  }
}

/// Call with the lock held.
void Channel::Interest() {
  uint32_t wanted = 0;
  if (!endOfInput_ && !resting_) wanted |= EPOLLIN;
  if (wantWrite_ && !writeFailed_) wanted |= EPOLLOUT;
  if (!number_ || !socket_) return;
  io_->Watch(number_, socket_.get(), watched_, wanted);
  watched_ = wanted;
}

/// Call with the lock held. The peer may have said something before it went, so that the channel
/// lives until that is read.
void Channel::WriteError(int) {
  writeFailed_ = true;
  wantWrite_ = false;
  out_.clear();
  unsent_ = 0;
  Interest();
}

void Channel::OnReady(uint32_t events) {
  if (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) Receive();
  if (events & (EPOLLOUT | EPOLLHUP | EPOLLERR)) Flush();
}

void Channel::OnKick() {
  std::unique_lock<std::mutex> lock(mutex_);
  switch (state_) {
    case State::kConnecting: {
      TryToConnect();
      bool ended = end_ != End::kNone;
      lock.unlock();
      if (ended) Tell();
      return;
    }
    case State::kClosed:
      ReleaseSocket();
      return;
    case State::kLingering:
      if (IoThread::Clock::now() >= lingerEnd_) {
        state_ = State::kClosed;
        ReleaseSocket();
        return;
      }
      break;
    default:
      break;
  }
  lock.unlock();
  Flush();
}

/// I/O thread.
void Channel::Flush() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    if (state_ != State::kOpen && state_ != State::kLingering) return;
    if (writeFailed_) {
      writing_.clear();
      flushing_ = false;
      break;
    }
    if (writing_.empty()) {
      writing_.swap(out_);
      if (writing_.empty()) {
        flushing_ = false;
        if (wantWrite_) {
          wantWrite_ = false;
          Interest();
        }
        break;
      }
    }
    int fd = socket_.get();
    lock.unlock();

    iovec parts[16];
    size_t count = 0;
    for (auto it = writing_.begin(); it != writing_.end() && count < 16; ++it, ++count) {
      parts[count] = {it->bytes.get() + it->begin, it->size - it->begin};
    }
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    ssize_t sent = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    int error = sent < 0 ? errno : 0;
    for (size_t left = sent > 0 ? static_cast<size_t>(sent) : 0; left;) {
      Chunk &first = writing_.front();
      size_t part = std::min(left, first.size - first.begin);
      first.begin += part;
      left -= part;
      if (first.begin == first.size) writing_.pop_front();
    }
    if (sent > 0) io_->Progressed();

    lock.lock();
    if (sent > 0) unsent_ -= std::min(unsent_, static_cast<size_t>(sent));
    if (error == EAGAIN) {
      wantWrite_ = true;
      Interest();
      break;
    }
    if (error && error != EINTR) {
      writing_.clear();
      WriteError(error);
    }
  }
  if (state_ == State::kLingering && (writeFailed_ || (out_.empty() && writing_.empty()))) {
    state_ = State::kClosed;
    ReleaseSocket();
  }
}

/// I/O thread.
void Channel::Receive() {
  // Of whichever thread waits for the sockets, so that a connection that rests costs no buffer.
  // Never deleted: that thread outlives every static's destructor.
  static auto &buffer = *new std::vector<uint8_t>(kReceiveSize);
  std::unique_lock<std::mutex> lock(mutex_);
  if (state_ == State::kLingering) {
    // Nobody is here to read; a peer that went shows when writing fails.
    endOfInput_ = true;
    Interest();
    return;
  }
  if (state_ != State::kOpen || end_ != End::kNone || endOfInput_ || resting_) return;
  int fd = socket_.get();
  lock.unlock();

  ssize_t count = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
  int error = count < 0 ? errno : 0;
  if (error == EAGAIN || error == EINTR) return;

  std::string problem;
  if (count > 0) {
    in_.insert(in_.end(), buffer.data(), buffer.data() + count);
    bool sound = ScanFrames(&problem);
    if (sound) return;
    lock.lock();
    Finish(End::kBroken, std::move(problem));
  } else {
    lock.lock();
    // A peer that goes while something waits for it unread resets the connection.
    if (error && error != ECONNRESET && error != EPIPE) {
      Finish(End::kBroken, std::strerror(error));
    } else if (!in_.empty()) {
      Finish(End::kBroken, "the last frame is cut off");
    } else {
      Finish(End::kPeerClosed, {});
    }
  }
  lock.unlock();
  Tell();
}

/// Moves complete frames to `ready_` and tells the client. I/O thread.
bool Channel::ScanFrames(std::string *problem) {
  size_t complete = 0;
  const char *wrong = nullptr;
  while (in_.size() - complete >= kHeaderSize) {
    uint32_t length = 0;
    FrameKind kind;
    wrong = DecodeHeader(in_.data() + complete, &length, &kind);
    if (wrong || in_.size() - complete - kHeaderSize < length) break;
    complete += kHeaderSize + length;
  }
  if (complete) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (ready_.empty() && complete == in_.size()) {
        ready_.swap(in_);
      } else {
        ready_.insert(ready_.end(), in_.begin(), in_.begin() + static_cast<ptrdiff_t>(complete));
        in_.erase(in_.begin(), in_.begin() + static_cast<ptrdiff_t>(complete));
      }
      if (ready_.size() > kReadyLimit && !resting_) {
        resting_ = true;
        Interest();
      }
    }
    if (in_.empty() && in_.capacity() > kReadyLimit) std::vector<uint8_t>().swap(in_);
    Tell();
  }
  if (wrong) *problem = wrong;
  return !wrong;
}

bool Channel::TakeFrames(std::vector<uint8_t> *frames) {
  frames->clear();
  std::lock_guard<std::mutex> lock(mutex_);
  if (ready_.empty()) return false;
  if (frames->capacity() > kReadyLimit) std::vector<uint8_t>().swap(*frames);
  frames->swap(ready_);
  if (resting_) {
    resting_ = false;
    Interest();
  }
  return true;
}

/// Call with the lock held, then `Tell` without it.
void Channel::Finish(End end, std::string problem) {
  if (end_ != End::kNone) return;
  end_ = end;
  problem_ = std::move(problem);
  endOfInput_ = true;
  writeFailed_ = true;
  wantWrite_ = false;
  out_.clear();
  unsent_ = 0;
  Interest();
  if (state_ == State::kConnecting) ReleaseSocket();
  // The peer of a broken channel must hear of it now, not when the last frames here are handled.
  if (end == End::kBroken && socket_) shutdown(socket_.get(), SHUT_RDWR);
}

bool Channel::Break(const std::string &problem) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != State::kOpen || end_ != End::kNone) return false;
    Finish(End::kBroken, problem);
  }
  OnTold(false);
  return true;
}

/// I/O thread.
void Channel::Tell() { io_->Tell(shared_from_this()); }

void Channel::OnTold(bool here) {
  if (auto client = client_.lock()) client->OnNews(here);
}

Channel::End Channel::end() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return end_;
}

std::string Channel::Problem() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return problem_;
}

Channel::Peer Channel::peer() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return peer_;
}

void Channel::Close() {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<uint8_t>().swap(ready_);
  switch (state_) {
    case State::kOpen:
      break;
    case State::kConnecting:
    case State::kIdle:
      state_ = State::kClosed;
      ReleaseSocket();
      return;
    default:
      return;
  }
  if (unsent_ && !writeFailed_ && end_ == End::kNone) {
    state_ = State::kLingering;
    lingerEnd_ = IoThread::Clock::now() + kLingerTime;
    io_->KickAfter(kLingerTime, shared_from_this());
    return;
  }
  state_ = State::kClosed;
  shutdown(socket_.get(), SHUT_RDWR);
  // Only the I/O thread gives the descriptor back: it may be about to use it.
  io_->Kick(shared_from_this());
}

/// Call with the lock held, and once the socket is connected on the I/O thread only.
void Channel::ReleaseSocket() {
  out_.clear();
  unsent_ = 0;
  if (socket_ && watched_) io_->Watch(number_, socket_.get(), watched_, 0);
  watched_ = 0;
  socket_.Reset();
  if (number_) io_->Remove(number_);
  number_ = 0;
}

size_t Channel::Unsent() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return writeFailed_ ? 0 : unsent_;
}

}  // namespace platform::xpc
