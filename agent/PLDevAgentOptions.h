//
// What the development agent is told on its command line. Plain C++: no platform object.
//

#ifndef PL_DEV_AGENT_OPTIONS_H
#define PL_DEV_AGENT_OPTIONS_H

#include <map>
#include <optional>
#include <string>

/// An error that the agent is to answer with.
struct PLDevAgentError {
  std::string domain;
  long code = 0;
  std::string text;
};

/// How the agent misbehaves when one of its methods is called.
struct PLDevAgentFault {
  bool hangs = false;
  bool dies = false;
  bool dropsReply = false;
  bool repliesTwice = false;
  bool repliesWrongType = false;
  std::optional<PLDevAgentError> error;
};

enum class PLDevAgentAsking { kUntilAnswered, kNever, kAlways };

struct PLDevAgentOptions {
  PLDevAgentAsking asking = PLDevAgentAsking::kUntilAnswered;
  /// Where the customer's answer is kept when the agent has ended.
  std::optional<std::string> stateFile;
  std::optional<std::string> email = "customer@example.com";
  long replyDelayMilliseconds = 0;
  std::string authorizationCode = "development-code";
  std::string apiVersion = "1.0";
  /// By selector.
  std::map<std::string, PLDevAgentFault> faults;

  /// Reads the arguments of `serve`, `arguments[0]` being the program's or the command's name.
  /// Returns what is wrong in one line, or nothing when all is well. Not reentrant (getopt_long).
  std::optional<std::string> parse(int count, char *const arguments[]);

  /// Explains the options of `parse`, a line each.
  static const char *help();
};

/// What the agent is to send to a process's log.
struct PLDevAgentMessage {
  long pid = 0;
  std::optional<std::string> appName;
  std::string text;

  /// Reads the arguments of `log`, in the manner of `PLDevAgentOptions::parse`.
  std::optional<std::string> parse(int count, char *const arguments[]);
};

#endif
