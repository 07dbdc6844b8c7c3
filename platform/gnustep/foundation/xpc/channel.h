// One end of a stream of frames over a Unix-domain socket. Sending never waits for the peer.

#ifndef PLATFORM_XPC_CHANNEL_H
#define PLATFORM_XPC_CHANNEL_H

#include <sys/types.h>
#include <time.h>

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
  /// Hears of a channel, on the I/O thread or on the one that calls `Break`.
  class Client {
   public:
    virtual ~Client() = default;
    /// `TakeFrames` has something, or `end` has been set.
    /// @param here  Whether this thread may handle it; else it must only hand the news on.
    virtual void OnNews(bool here) = 0;
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

  /// Frames sent before `Connect` or `Adopt` are kept.
  explicit Channel(std::weak_ptr<Client> client);
  ~Channel() override;

  /// Connects to a service; returns at once. Returns false, without news to the client, when that
  /// failed and ended the channel.
  bool Connect(const std::string &service);
  /// Takes over a connected socket, or none when the peer could not be reached. Returns as
  /// `Connect`.
  bool Adopt(Descriptor socket);

  /// Hands a frame over, behind all that was handed over before. Any thread.
  /// @param now  Whether somebody waits for it: goes out on this thread if the socket takes it.
  Sent Send(const uint8_t *frame, size_t length, bool now);

  /// Takes all complete frames that have arrived, headers included, into `frames` (which is emptied
  /// first). Returns false when there is none. Reading rests while too much waits here.
  bool TakeFrames(std::vector<uint8_t> *frames);

  /// How the channel ended; frames that arrived before are still there.
  End end() const;
  std::string Problem() const;
  Peer peer() const;

  /// Ends the channel as one that cannot go on. Frames that have arrived are still there. Returns
  /// false when it had ended already.
  bool Break(const std::string &problem);

  /// Ends the channel without news to the client. What waits to be written still goes out if the
  /// peer takes it soon.
  void Close();

  void OnReady(uint32_t events) override;
  void OnKick() override;
  void OnTold(bool here) override;
  size_t Unsent() const override;

 private:
  enum class State { kIdle, kConnecting, kOpen, kLingering, kClosed };

  struct Chunk {
    std::unique_ptr<uint8_t[]> bytes;
    size_t begin = 0;
    size_t size = 0;
    size_t capacity = 0;
  };

  void Open(Descriptor socket);
  void TryToConnect();
  void Append(const uint8_t *bytes, size_t length);
  void Interest();
  void WriteError(int error);
  void Flush();
  void Receive();
  bool ScanFrames(std::string *problem);
  void Finish(End end, std::string problem);
  void ReleaseSocket();
  void Tell();

  const std::weak_ptr<Client> client_;

  mutable std::mutex mutex_;
  State state_ = State::kIdle;
  IoThread *io_ = nullptr;
  uint64_t number_ = 0;
  Descriptor socket_;
  std::string service_;
  Peer peer_;
  uint32_t watched_ = 0;
  bool wantWrite_ = false;    ///< The socket was full.
  bool flushing_ = false;     ///< The I/O thread has been asked to write, or does.
  bool writeFailed_ = false;  ///< Nothing can be written any more; what can be read decides.
  bool endOfInput_ = false;
  End end_ = End::kNone;
  std::string problem_;
  std::deque<Chunk> out_;
  size_t unsent_ = 0;
  time_t lastDirectSecond_ = 0;
  long lastDirectNanosecond_ = -1;
  std::vector<uint8_t> ready_;
  bool resting_ = false;
  IoThread::Clock::time_point lingerEnd_;

  // Of the I/O thread alone.
  std::deque<Chunk> writing_;
  std::vector<uint8_t> in_;
  unsigned tries_ = 0;
};

}  // namespace platform::xpc

#endif
