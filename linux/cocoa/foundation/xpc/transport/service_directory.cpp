#include "service_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace platform::xpc {

namespace {

std::string Environment(const char *name) {
  const char *value = std::getenv(name);
  return value ? value : "";
}

std::string DirectoryPath() {
  std::string path = Environment("COCOA_SERVICE_DIR");
  if (!path.empty()) {
    return path;
  }
  path = Environment("XDG_RUNTIME_DIR");
  if (!path.empty()) {
    return path + "/cocoa-services";
  }
  path = Environment("TMPDIR");
  if (path.empty()) {
    path = "/tmp";
  }
  return path + "/cocoa-services-" + std::to_string(geteuid());
}

std::string Because(const std::string &what, int error) {
  return what + ": " + std::strerror(error);
}

int OpenDirectory(bool create, Descriptor *directory, std::string *path, std::string *problem) {
  *path = DirectoryPath();
  if (create && mkdir(path->c_str(), 0700) != 0 && errno != EEXIST) {
    int error = errno;
    *problem = Because("cannot create the service directory " + *path, error);
    return error;
  }
  *directory = Descriptor(open(path->c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!*directory || fstat(directory->get(), &status) != 0) {
    int error = errno;
    *problem = error == ENOTDIR ? "the service directory " + *path + " is a link or no directory"
                                : Because("cannot open the service directory " + *path, error);
    return error;
  }
  if (status.st_uid != geteuid()) {
    *problem = "the service directory " + *path + " belongs to another user";
    return EPERM;
  }
  if (status.st_mode & 077) {
    *problem = "the service directory " + *path + " is open to other users";
    return EPERM;
  }
  return 0;
}

bool IsServiceName(const std::string &name) {
  return !name.empty() && name.size() <= 128 && name[0] != '.' &&
         name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

/// Where the full path is too long for a socket's address, the directory's descriptor shortens it.
int MakeAddress(const Descriptor &directory, const std::string &path, const std::string &file,
                sockaddr_un *address) {
  std::string full = path + "/" + file;
  if (full.size() >= sizeof address->sun_path) {
    full = "/proc/self/fd/" + std::to_string(directory.get()) + "/" + file;
  }
  if (full.size() >= sizeof address->sun_path) {
    return ENAMETOOLONG;
  }
  std::memset(address, 0, sizeof *address);
  address->sun_family = AF_UNIX;
  std::memcpy(address->sun_path, full.c_str(), full.size());
  return 0;
}

int OpenSocket(Descriptor *socket) {
  *socket = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  return *socket ? 0 : errno;
}

}  // namespace

void Descriptor::reset() {
  if (fd_ >= 0) {
    close(fd_);
  }
  fd_ = -1;
}

Peer PeerOf(const Descriptor &socket) {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
    return {};
  }
  return {peer.pid, peer.uid, peer.gid};
}

int ConnectToService(const std::string &name, Descriptor *socket, std::string *problem) {
  Descriptor directory;
  std::string path;
  if (!IsServiceName(name)) {
    *problem = "\"" + name + "\" is no name of a service";
    return EINVAL;
  }
  sockaddr_un address;
  int error = OpenDirectory(false, &directory, &path, problem);
  if (error == ENOENT) {
    problem->clear();
  }
  if (error) {
    return error;
  }
  error = MakeAddress(directory, path, name, &address);
  if (!error && !*socket) {
    error = OpenSocket(socket);
  }
  if (!error && connect(socket->get(), reinterpret_cast<sockaddr *>(&address), sizeof address)) {
    error = errno;
  }
  if (error == ENOENT || error == ECONNREFUSED) {
    problem->clear();
  } else if (error) {
    *problem = Because("cannot connect to " + name, error);
  }
  return error;
}

int OfferService(const std::string &name, ServiceSocket *service, std::string *problem) {
  Descriptor directory;
  std::string path;
  if (!IsServiceName(name)) {
    *problem = "\"" + name + "\" is no name of a service";
    return EINVAL;
  }
  int error = OpenDirectory(true, &directory, &path, problem);
  if (error) {
    return error;
  }

  // The lock, not the socket, says whether somebody serves the name: it goes with its process.
  // Its file stays, since a third process could hold one that was taken away.
  service->lock = Descriptor(openat(directory.get(), ("." + name + ".lock").c_str(),
                                    O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!service->lock || flock(service->lock.get(), LOCK_EX | LOCK_NB) != 0) {
    error = errno == EWOULDBLOCK ? EADDRINUSE : errno;
    *problem = error == EADDRINUSE ? "the service " + name + " is offered already"
                                   : Because("cannot lock the service " + name, error);
    service->lock.reset();
    return error;
  }

  // Made beside and moved over, so that there is no moment without a socket that answers.
  std::string fresh = "." + name + ".new";
  sockaddr_un address;
  error = MakeAddress(directory, path, fresh, &address);
  if (!error) {
    error = OpenSocket(&service->listening);
  }
  if (!error) {
    unlinkat(directory.get(), fresh.c_str(), 0);
    if (bind(service->listening.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) ||
        listen(service->listening.get(), SOMAXCONN) ||
        renameat(directory.get(), fresh.c_str(), directory.get(), name.c_str())) {
      error = errno;
    }
  }
  if (error) {
    *problem = Because("cannot offer the service " + name, error);
    service->listening.reset();
    service->lock.reset();
    return error;
  }
  service->path = path + "/" + name;
  return 0;
}

void WithdrawService(ServiceSocket *service) {
  // While the lock is held: a successor's socket must not be the one that goes.
  unlink(service->path.c_str());
  service->lock.reset();
}

}  // namespace platform::xpc
