// One end of a stream of frames over a Unix-domain socket. Sending never waits for the peer.
//
// Each channel reads on a thread of its own that blocks in recv().

#ifndef PLATFORM_XPC_CHANNEL_H
#define PLATFORM_XPC_CHANNEL_H

#include <sys/types.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "io_thread.h"
#include "service_directory.h"

namespace platform::xpc {

class Channel : public IoSource, public std::enable_shared_from_this<Channel> {
 public:
  /// Hears of a channel, on a thread of its own, on the I/O thread or on the one that calls
  /// `Break`.
  class Client {
   public:
    virtual ~Client() = default;
    /// `TakeFrames` has something, or `end` has been set. Must only hand the news on.
    virtual void OnNews() = 0;
  };

  enum class End {
    kNone,         ///< Still open.
    kUnreachable,  ///< Nobody serves the name; `Problem` says it for the log.
    kPeerClosed,   ///< The peer went, between two frames.
    kBroken,       ///< Frames that are none, a cut-off one, or a system error; see `Problem`.
  };

  enum class Sent {
    kYes,     ///< Written, or kept to be written in its turn.
    kFull,    ///< Refused: too much waits already.
    kClosed,  ///< Refused: the channel has ended.
  };

  struct Peer {
    pid_t process = 0;
    uid_t user = static_cast<uid_t>(-1);
    gid_t group = static_cast<gid_t>(-1);
  };

  /// A piece of what waits to be written.
  struct Chunk {
    std::unique_ptr<uint8_t[]> bytes;
    size_t begin = 0;
    size_t size = 0;
    size_t capacity = 0;
  };

  /// Frames sent before `Connect` or `Adopt` are kept.
  /// @param lock  The connection's, which its channels share, so that a message takes one lock
  /// only.
  Channel(std::weak_ptr<Client> client, std::shared_ptr<std::mutex> lock);
  ~Channel() override;

  /// Connects to a service; returns at once. Returns false, without news to the client, when that
  /// failed and ended the channel. Call with the lock held.
  bool Connect(const std::string &service);
  /// Takes over a connected socket, or none when the peer could not be reached. Returns as
  /// `Connect`. Call with the lock held.
  bool Adopt(Descriptor socket);

  /// Hands a frame over, behind all that was handed over before. It may be the last thing that a
  /// process does: it goes out on this thread if the socket takes it. Call with the lock held.
  Sent Send(const uint8_t *frame, size_t length);
  /// The same, without the lock held.
  Sent Reply(const uint8_t *frame, size_t length);

  /// Takes all complete frames that have arrived, headers included, into `frames` (which is emptied
  /// first). Returns false when there is none. Reading rests while too much waits here.
  bool TakeFrames(std::vector<uint8_t> *frames);

  /// How the channel ended; frames that arrived before are still there. Call with the lock held.
  End end() const { return end_; }
  std::string Problem() const;
  /// Call with the lock held.
  Peer peer() const { return peer_; }

  /// Ends the channel as one that cannot go on. Frames that have arrived are still there. Returns
  /// false when it had ended already.
  bool Break(const std::string &problem);

  /// Ends the channel without news to the client. What waits to be written still goes out if the
  /// peer takes it soon.
  void Close();

  void OnReady() override;
  void OnKick() override;
  size_t Unsent() const override;

 private:
  enum class State { kIdle, kConnecting, kOpen, kLingering, kClosed };

  void Open(Descriptor socket);
  void TryToConnect();
  void Append(const uint8_t *bytes, size_t length);
  void Interest();
  void WriteError();
  void Write();
  void Flush();
  bool IsReadable() const { return state_ == State::kOpen && end_ == End::kNone; }
  void Read();
  bool WaitForRoom();
  void Receive(const uint8_t *bytes, size_t count);
  void ReceiveEnd(int error);
  void Finish(End end, std::string problem);
  void ReleaseSocket();
  void Tell();

  const std::weak_ptr<Client> client_;

  const std::shared_ptr<std::mutex> mutex_;
  State state_ = State::kIdle;
  IoThread *io_ = nullptr;
  uint64_t number_ = 0;
  Descriptor socket_;
  std::string service_;
  Peer peer_;
  bool wantWrite_ = false;    ///< The socket was full.
  bool flushing_ = false;     ///< The I/O thread has been asked to write, or does.
  bool writeFailed_ = false;  ///< Nothing can be written any more; what can be read decides.
  bool reading_ = false;      ///< Its thread runs.
  End end_ = End::kNone;
  std::string problem_;
  std::deque<Chunk> out_;
  size_t unsent_ = 0;
  std::vector<uint8_t> ready_;
  bool resting_ = false;  ///< Too much waits to be taken.
  std::condition_variable rested_;
  IoThread::Clock::time_point lingerEnd_;

  // Of the I/O thread alone.
  std::deque<Chunk> writing_;
  unsigned tries_ = 0;

  // Of the reading thread alone.
  std::vector<uint8_t> in_;
};

}  // namespace platform::xpc

#endif
