#include "channel.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "../threads/PlatformThread.h"
#include "wire.h"

namespace platform::xpc {

namespace {

constexpr size_t kUnsentLimit = size_t{64} << 20;
/// Of the first chunk, and of those behind it. For more than about a thousand bytes the C library
/// first tidies up what was freed (malloc_consolidate), which took 70 µs of a window's click.
constexpr size_t kFirstChunkSize = 1000;
constexpr size_t kChunkSize = size_t{64} << 10;
/// On the reading thread's stack, of which a connection costs no more than it has used.
constexpr size_t kReceiveSize = size_t{64} << 10;
/// Arrived bytes beyond which reading rests until the client has taken them.
constexpr size_t kReadyLimit = size_t{1} << 20;
constexpr std::chrono::milliseconds kLingerTime(2000);
constexpr std::chrono::milliseconds kLongestRetry(64);

/// Writes what the socket takes of `chunks`, and takes that off them. Returns the bytes, or -1 with
/// errno set.
ssize_t WriteChunks(int socket, std::deque<Channel::Chunk> *chunks) {
  iovec parts[16];
  size_t count = 0;
  for (auto it = chunks->begin(); it != chunks->end() && count < 16; ++it, ++count) {
    parts[count] = {it->bytes.get() + it->begin, it->size - it->begin};
  }
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = count;
  const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  for (size_t left = sent > 0 ? static_cast<size_t>(sent) : 0; left;) {
    Channel::Chunk &first = chunks->front();
    const size_t part = std::min(left, first.size - first.begin);
    first.begin += part;
    left -= part;
    if (first.begin == first.size) chunks->pop_front();
  }
  return sent;
}

}  // namespace

Channel::Channel(std::weak_ptr<Client> client, std::shared_ptr<std::mutex> lock)
    : client_(std::move(client)), mutex_(std::move(lock)) {}

Channel::~Channel() = default;

bool Channel::Connect(const std::string &service) {
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
  auto *self = new std::shared_ptr<Channel>(shared_from_this());
  const auto read = [](void *context) {
    std::unique_ptr<std::shared_ptr<Channel>> channel(
        static_cast<std::shared_ptr<Channel> *>(context));
    (*channel)->Read();
  };
  reading_ = PlatformStartThread("xpc-read", read, self);
  if (!reading_) {
    delete self;
    Finish(End::kUnreachable, "no threads are left to read what the peer sends");
    return;
  }
  state_ = State::kOpen;
  if (!number_) number_ = io_->Add(shared_from_this());
  if (!out_.empty() && !flushing_) {
    flushing_ = true;
    io_->Kick(shared_from_this());
  }
}

Channel::Sent Channel::Send(const uint8_t *frame, size_t length) {
  if (end_ != End::kNone || state_ == State::kLingering || state_ == State::kClosed) {
    return Sent::kClosed;
  }
  if (writeFailed_) return Sent::kYes;
  if (unsent_ && unsent_ + length > kUnsentLimit) return Sent::kFull;
  Append(frame, length);
  Write();
  return Sent::kYes;
}

Channel::Sent Channel::Reply(const uint8_t *frame, size_t length) {
  std::lock_guard<std::mutex> lock(*mutex_);
  return Send(frame, length);
}

/// Writes on this thread. Call with the lock held.
void Channel::Write() {
  if (state_ != State::kOpen || flushing_ || out_.empty()) return;
  const ssize_t sent = WriteChunks(socket_.get(), &out_);
  if (sent < 0 && errno != EAGAIN && errno != EINTR) {
    WriteError();
    return;
  }
  if (sent > 0) unsent_ -= std::min(unsent_, static_cast<size_t>(sent));
  if (out_.empty()) return;
  flushing_ = true;
  wantWrite_ = true;
  Interest();
}

/// Call with the lock held.
void Channel::Append(const uint8_t *bytes, size_t length) {
  unsent_ += length;
  while (length) {
    if (out_.empty() || out_.back().size == out_.back().capacity) {
      Chunk chunk;
      chunk.capacity = out_.empty() ? kFirstChunkSize : kChunkSize;
      chunk.bytes.reset(new uint8_t[chunk.capacity]);
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
  if (!number_ || !socket_) return;
  io_->Watch(number_, socket_.get(), wantWrite_ && !writeFailed_ ? POLLOUT : 0);
}

/// Call with the lock held. The peer may have said something before it went, so that the channel
/// lives until that is read.
void Channel::WriteError() {
  writeFailed_ = true;
  wantWrite_ = false;
  out_.clear();
  unsent_ = 0;
  Interest();
}

void Channel::OnReady() { Flush(); }

void Channel::OnKick() {
  std::unique_lock<std::mutex> lock(*mutex_);
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
  std::unique_lock<std::mutex> lock(*mutex_);
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
      flushing_ = true;
    }
    int fd = socket_.get();
    lock.unlock();

    const ssize_t sent = WriteChunks(fd, &writing_);
    const int error = sent < 0 ? errno : 0;
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
      WriteError();
    }
  }
  if (state_ == State::kLingering && (writeFailed_ || (out_.empty() && writing_.empty()))) {
    state_ = State::kClosed;
    ReleaseSocket();
  }
}

/// Reads until the channel has ended. The reading thread; the descriptor stays while it runs.
void Channel::Read() {
  uint8_t buffer[kReceiveSize];
  while (WaitForRoom()) {
    const ssize_t count = recv(socket_.get(), buffer, sizeof buffer, 0);
    if (count > 0) {
      Receive(buffer, static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      ReceiveEnd(count < 0 ? errno : 0);
    }
  }
  std::lock_guard<std::mutex> lock(*mutex_);
  reading_ = false;
  if (state_ == State::kClosed) io_->Kick(shared_from_this());
}

/// Returns whether to read on.
bool Channel::WaitForRoom() {
  std::unique_lock<std::mutex> lock(*mutex_);
  rested_.wait(lock, [this] { return !resting_ || !IsReadable(); });
  return IsReadable();
}

/// Moves complete frames to `ready_` and tells the client. The reading thread.
void Channel::Receive(const uint8_t *bytes, size_t count) {
  in_.insert(in_.end(), bytes, bytes + count);
  size_t complete = 0;
  const char *wrong = nullptr;
  while (in_.size() - complete >= kHeaderSize) {
    uint32_t length = 0;
    FrameKind kind;
    wrong = DecodeHeader(in_.data() + complete, &length, &kind);
    if (wrong || in_.size() - complete - kHeaderSize < length) break;
    complete += kHeaderSize + length;
  }
  if (!complete && !wrong) return;
  {
    std::lock_guard<std::mutex> lock(*mutex_);
    if (!IsReadable()) return;
    if (ready_.empty() && complete == in_.size()) {
      ready_.swap(in_);
    } else {
      const auto end = in_.begin() + static_cast<ptrdiff_t>(complete);
      ready_.insert(ready_.end(), in_.begin(), end);
      in_.erase(in_.begin(), end);
    }
    resting_ = ready_.size() > kReadyLimit;
    if (wrong) Finish(End::kBroken, wrong);
  }
  if (in_.empty() && in_.capacity() > kReadyLimit) std::vector<uint8_t>().swap(in_);
  Tell();
}

/// The reading thread.
void Channel::ReceiveEnd(int error) {
  {
    std::lock_guard<std::mutex> lock(*mutex_);
    if (!IsReadable()) return;
    // A peer that goes while something waits for it unread resets the connection.
    if (error && error != ECONNRESET && error != EPIPE) {
      Finish(End::kBroken, std::strerror(error));
    } else if (!in_.empty()) {
      Finish(End::kBroken, "the last frame is cut off");
    } else {
      Finish(End::kPeerClosed, {});
    }
  }
  Tell();
}

bool Channel::TakeFrames(std::vector<uint8_t> *frames) {
  frames->clear();
  std::lock_guard<std::mutex> lock(*mutex_);
  if (ready_.empty()) return false;
  if (frames->capacity() > kReadyLimit) std::vector<uint8_t>().swap(*frames);
  frames->swap(ready_);
  if (resting_) {
    resting_ = false;
    rested_.notify_one();
  }
  return true;
}

/// Call with the lock held, then `Tell` without it.
void Channel::Finish(End end, std::string problem) {
  if (end_ != End::kNone) return;
  end_ = end;
  problem_ = std::move(problem);
  rested_.notify_one();
  writeFailed_ = true;
  wantWrite_ = false;
  out_.clear();
  unsent_ = 0;
  Interest();
  if (state_ != State::kOpen) ReleaseSocket();
  // The peer of a broken channel must hear of it now, not when the last frames here are handled.
  if (end == End::kBroken && socket_) shutdown(socket_.get(), SHUT_RDWR);
}

bool Channel::Break(const std::string &problem) {
  {
    std::lock_guard<std::mutex> lock(*mutex_);
    if (state_ != State::kOpen || end_ != End::kNone) return false;
    Finish(End::kBroken, problem);
  }
  Tell();
  return true;
}

void Channel::Tell() {
  if (auto client = client_.lock()) client->OnNews();
}

std::string Channel::Problem() const {
  std::lock_guard<std::mutex> lock(*mutex_);
  return problem_;
}

void Channel::Close() {
  std::lock_guard<std::mutex> lock(*mutex_);
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
  rested_.notify_one();
  if (unsent_ && !writeFailed_ && end_ == End::kNone) {
    state_ = State::kLingering;
    shutdown(socket_.get(), SHUT_RD);
    lingerEnd_ = IoThread::Clock::now() + kLingerTime;
    io_->KickAfter(kLingerTime, shared_from_this());
    if (!flushing_) io_->Kick(shared_from_this());
    return;
  }
  state_ = State::kClosed;
  shutdown(socket_.get(), SHUT_RDWR);
  // The two threads may be about to use the descriptor; the one that reads kicks again as it ends.
  if (!reading_) io_->Kick(shared_from_this());
}

/// Call with the lock held, and once the socket is connected on the I/O thread only.
void Channel::ReleaseSocket() {
  out_.clear();
  unsent_ = 0;
  if (number_) io_->Watch(number_, socket_.get(), 0);
  if (reading_) {
    shutdown(socket_.get(), SHUT_RDWR);
    return;
  }
  socket_.Reset();
  if (number_) io_->Remove(number_);
  number_ = 0;
}

size_t Channel::Unsent() const {
  std::lock_guard<std::mutex> lock(*mutex_);
  return writeFailed_ ? 0 : unsent_;
}

}  // namespace platform::xpc
