//
// Whether the customer has answered, for as long as the development agent runs or longer. Plain C++:
// no platform object.
//

#ifndef PL_DEV_AGENT_MEMORY_H
#define PL_DEV_AGENT_MEMORY_H

#include <mutex>
#include <optional>
#include <string>

/// Any thread, but for `open`.
class PLDevAgentMemory {
 public:
  /// Goes on with what `file` keeps, which is made if it is not there, and keeps it up to date.
  /// Returns what is wrong in one line, or nothing when all is well. Before anything else.
  std::optional<std::string> open(const std::string &file);

  bool hasAnswer() const;

  /// Returns why the file does not keep it, in one line; the answer is remembered all the same.
  std::optional<std::string> recordAnswer();

 private:
  std::optional<std::string> write() const;

  mutable std::mutex mutex_;
  std::optional<std::string> file_;
  bool hasAnswer_ = false;
};

#endif
