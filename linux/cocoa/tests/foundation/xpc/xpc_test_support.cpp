#include "xpc_test_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

extern char **environ;

namespace xpc_test {

namespace {

bool WaitReadable(int fd, Clock::time_point end) {
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0) {
      return false;
    }
    pollfd poll{fd, POLLIN, 0};
    int count = ::poll(&poll, 1, static_cast<int>(left));
    if (count > 0) {
      return true;
    }
    if (count < 0 && errno != EINTR) {
      return false;
    }
  }
}

sockaddr_un Address(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

}  // namespace

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void Counter::add() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++count_;
  changed_.notify_all();
}

bool Counter::wait(unsigned count, std::chrono::milliseconds limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, limit, [&] { return count_ >= count; });
}

unsigned Counter::count() {
  std::lock_guard<std::mutex> lock(mutex_);
  return count_;
}

ServiceDirectory::ServiceDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "xpc-XXXXXX").string();
  if (!mkdtemp(path.data())) {
    std::abort();
  }
  path_ = path;
  setenv("COCOA_SERVICE_DIR", path_.c_str(), 1);
}

ServiceDirectory::~ServiceDirectory() {
  unsetenv("COCOA_SERVICE_DIR");
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Peer::~Peer() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  if (output_ >= 0) {
    close(output_);
  }
}

bool Peer::start(const std::vector<std::string> &arguments) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return false;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  std::string program =
      (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "xpc_peer").string();
  std::vector<char *> argv{program.data()};
  std::vector<std::string> copies = arguments;
  for (auto &argument : copies) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  int error = posix_spawn(&process_, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  output_ = ends[0];
  if (error) {
    process_ = -1;
  }
  return error == 0;
}

bool Peer::serve(const std::string &name) {
  if (!start({"serve", name})) {
    return false;
  }
  char line[16];
  return WaitReadable(output_, Clock::now() + kPatience) && read(output_, line, sizeof line) > 0;
}

void Peer::signal(int signal) {
  if (process_ <= 0) {
    return;
  }
  kill(process_, signal);
  // A process is stopped some time after it was told so.
  siginfo_t stopped;
  if (signal == SIGSTOP) {
    waitid(P_PID, static_cast<id_t>(process_), &stopped, WSTOPPED | WNOWAIT);
  }
}

int Peer::waitForExit() {
  Clock::time_point end = Clock::now() + kPatience;
  // The pipe closes when the process ends.
  char rest[64];
  while (WaitReadable(output_, end)) {
    if (read(output_, rest, sizeof rest) > 0) {
      continue;
    }
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  return -1;
}

RawSocket &RawSocket::operator=(RawSocket &&other) {
  close();
  fd_ = other.fd_;
  other.fd_ = -1;
  return *this;
}

RawSocket RawSocket::listen(const std::string &path, int backlog) {
  RawSocket made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = Address(path);
  if (bind(made.fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
      ::listen(made.fd_, backlog) != 0) {
    made.close();
  }
  return made;
}

RawSocket RawSocket::connect(const std::string &path) {
  RawSocket made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = Address(path);
  if (::connect(made.fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
    made.close();
  }
  return made;
}

RawSocket RawSocket::accept() {
  if (!WaitReadable(fd_, Clock::now() + kPatience)) {
    return RawSocket();
  }
  return RawSocket(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
}

bool RawSocket::write(const void *bytes, size_t length) {
  const char *at = static_cast<const char *>(bytes);
  while (length) {
    ssize_t sent = send(fd_, at, length, MSG_NOSIGNAL);
    if (sent < 0) {
      return false;
    }
    at += sent;
    length -= static_cast<size_t>(sent);
  }
  return true;
}

std::vector<uint8_t> RawSocket::readFrame() {
  Clock::time_point end = Clock::now() + kPatience;
  std::vector<uint8_t> frame(8);
  for (size_t have = 0; have < frame.size();) {
    if (!WaitReadable(fd_, end)) {
      return {};
    }
    ssize_t count = recv(fd_, frame.data() + have, frame.size() - have, 0);
    if (count <= 0) {
      return {};
    }
    have += static_cast<size_t>(count);
    if (have == 8) {
      frame.resize(8 + (frame[0] | frame[1] << 8 | frame[2] << 16 | size_t{frame[3]} << 24));
    }
  }
  return frame;
}

bool RawSocket::waitForEnd() {
  Clock::time_point end = Clock::now() + kPatience;
  char rest[4096];
  while (WaitReadable(fd_, end)) {
    if (recv(fd_, rest, sizeof rest, 0) <= 0) {
      return true;
    }
  }
  return false;
}

void RawSocket::close() {
  if (fd_ >= 0) {
    ::close(fd_);
  }
  fd_ = -1;
}

unsigned OpenDescriptors() {
  unsigned count = 0;
  DIR *directory = opendir("/proc/self/fd");
  while (readdir(directory)) {
    ++count;
  }
  closedir(directory);
  return count;
}

}  // namespace xpc_test
