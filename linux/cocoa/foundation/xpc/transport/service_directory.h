// Where services are found: a directory that only its owner may enter, with a socket for each name.

#ifndef PLATFORM_XPC_SERVICE_DIRECTORY_H
#define PLATFORM_XPC_SERVICE_DIRECTORY_H

#include <sys/types.h>

#include <string>

namespace platform::xpc {

/// A descriptor that closes itself.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor &&other) : fd_(other.take()) {}
  Descriptor &operator=(Descriptor &&other) {
    if (this != &other) {
      reset();
      fd_ = other.take();
    }
    return *this;
  }
  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }
  int take() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset();

 private:
  int fd_ = -1;
};

/// Who is at the other end of a connected socket, as the kernel says.
struct Peer {
  pid_t process = 0;
  uid_t user = static_cast<uid_t>(-1);
  gid_t group = static_cast<gid_t>(-1);
};

/// Returns the peer as initialized above where there is none.
Peer PeerOf(const Descriptor &socket);

/// Starts to connect to the service `name`.
///
/// The directory is `COCOA_SERVICE_DIR`, else `cocoa-services` in `XDG_RUNTIME_DIR`, else
/// `cocoa-services-<user>` in the temporary folder. It is refused when it is a link, belongs to another
/// user, or when its group or others have any right in it.
/// @param socket  Is created, not blocking, when it holds none, and kept for another try.
/// @return 0 when connected, EAGAIN when the service's queue is full and to be tried again, else
///     what went wrong, with a line for the log in `problem`. It has none for ENOENT and
///     ECONNREFUSED: that nobody serves a name is no fault.
int ConnectToService(const std::string &name, Descriptor *socket, std::string *problem);

/// The socket and the lock of a service that this process offers.
struct ServiceSocket {
  Descriptor listening;
  Descriptor lock;
  std::string path;  ///< Of the socket, for taking it away again.
};

/// Offers the service `name`; creates the directory where it is missing. A socket that a dead
/// process left is replaced.
/// @return 0, else what went wrong (EADDRINUSE: another process serves the name), with a line for
///     the log in `problem`.
int OfferService(const std::string &name, ServiceSocket *service, std::string *problem);

/// Removes the socket's name and releases the lock. The socket stays open.
void WithdrawService(ServiceSocket *service);

}  // namespace platform::xpc

#endif
