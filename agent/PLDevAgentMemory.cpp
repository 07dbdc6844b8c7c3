#include "agent/PLDevAgentMemory.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

constexpr char sAnswered[] = "answered\n";
constexpr char sUnanswered[] = "not answered\n";

std::string SystemError(const std::string &file) { return file + ": " + std::strerror(errno); }

}  // namespace

std::optional<std::string> PLDevAgentMemory::open(const std::string &file) {
  file_ = file;
  errno = 0;
  std::ifstream stream(file);
  if (stream) {
    std::ostringstream text;
    text << stream.rdbuf();
    if (text.str() != sAnswered && text.str() != sUnanswered) {
      return "not a file that --state has written: " + file;
    }
    hasAnswer_ = text.str() == sAnswered;
  } else if (errno != ENOENT) {
    return SystemError(file);
  }
  // So that a file that cannot be written is refused now and not when the customer has answered.
  return write();
}

bool PLDevAgentMemory::hasAnswer() const {
  const std::lock_guard lock(mutex_);
  return hasAnswer_;
}

std::optional<std::string> PLDevAgentMemory::recordAnswer() {
  const std::lock_guard lock(mutex_);
  hasAnswer_ = true;
  return file_ ? write() : std::nullopt;
}

/// By a second file, since the agent may be ended at any time.
std::optional<std::string> PLDevAgentMemory::write() const {
  const std::string next = *file_ + ".new";
  std::ofstream stream(next, std::ios::trunc);
  stream << (hasAnswer_ ? sAnswered : sUnanswered);
  stream.close();
  if (!stream || std::rename(next.c_str(), file_->c_str()) != 0) {
    return SystemError(*file_);
  }
  return std::nullopt;
}
