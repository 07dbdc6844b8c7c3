// One end of a stream of frames over a Unix-domain socket. Sending never waits for the peer.

#ifndef PLATFORM_XPC_CHANNEL_H
#define PLATFORM_XPC_CHANNEL_H

#include <event2/bufferevent.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "io_thread.h"
#include "service_directory.h"
#include "wire/wire.h"

namespace platform::xpc {

class Channel : public std::enable_shared_from_this<Channel> {
 public:
  /// Hears of a channel, on the I/O thread or on the one that calls `breakOff`.
  class Client {
   public:
    virtual ~Client() = default;
    /// `TakeFrame` has something, or `end` has been set. Must only schedule what follows.
    virtual void onChange() = 0;
  };

  enum class End {
    kNone,         ///< Still open.
    kUnreachable,  ///< Nobody serves the name; `Problem` says it for the log.
    kPeerClosed,   ///< The peer closed, between two frames.
    kBroken,       ///< A malformed or truncated frame, or a system error; see `Problem`.
  };

  enum class Sent {
    kYes,     ///< Written, or buffered to be written in its turn.
    kFull,    ///< Refused: too much is buffered already.
    kClosed,  ///< Refused: the channel has ended.
  };

  /// A frame whose header was sound; the payload is as it came.
  struct Received {
    FrameKind kind;
    std::vector<uint8_t> payload;
  };

  /// Frames sent before `connect` or `adopt` are buffered.
  explicit Channel(std::weak_ptr<Client> client);
  ~Channel();

  /// Connects to a service; returns at once. Returns false, without notifying the client, when that
  /// failed and ended the channel.
  bool connect(const std::string &service);
  /// Takes over a connected socket, or none when the peer could not be reached. Returns as
  /// `connect`.
  bool adopt(Descriptor socket);

  /// Hands a frame over, behind all that was handed over before. It may be the last thing that a
  /// process does: it goes out on this thread if the socket takes it.
  Sent send(const uint8_t *frame, size_t length);

  /// Takes the frame that arrived first. Returns false when there is none. Reading pauses while too
  /// much is buffered here (back-pressure).
  bool takeFrame(Received *frame);

  /// How the channel ended; frames that arrived before are still there.
  End end() const;
  std::string problem() const;
  Peer peer() const;

  /// Ends the channel as one that cannot go on. Frames that have arrived are still there. Returns
  /// false when it had ended already.
  bool breakOff(const std::string &problem);

  /// Ends the channel without notifying the client. What is buffered still goes out if the peer
  /// takes it soon.
  void close();

 private:
  /// See the diagram in the layer's README.
  enum class State { kIdle, kConnecting, kOpen, kEnded, kLingering, kClosed };

  void open(Descriptor socket);
  void tryToConnect();
  void retryToConnect();
  size_t unsent() const;
  void dropUnsent();
  void onReadable();
  void onWritten();
  void onEvent(short what, int error);
  void finishReading(int error);
  void finish(End end, std::string problem);
  void release();
  void notifyClient();

  const std::weak_ptr<Client> client_;
  IoThread *const io_;

  mutable std::mutex mutex_;
  State state_ = State::kIdle;
  bufferevent *stream_ = nullptr;  ///< Without a socket until `Open`.
  std::shared_ptr<Channel> self_;  ///< While the I/O thread may call.
  Descriptor connecting_;
  std::string service_;
  unsigned tries_ = 0;
  Peer peer_;
  bool writeFailed_ = false;  ///< Nothing can be written any more; what can be read decides.
  End end_ = End::kNone;
  std::string problem_;
  std::deque<Received> ready_;
  size_t readySize_ = 0;
};

}  // namespace platform::xpc

#endif
