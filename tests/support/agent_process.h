#ifndef TESTS_AGENT_PROCESS_H
#define TESTS_AGENT_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

/// A development agent in a process of its own, behind a service folder of its own. One at a time
/// in a process, since the folder is named by the environment.
class AgentProcess {
 public:
  /// Makes the service folder; nobody serves it yet.
  AgentProcess();
  AgentProcess(const AgentProcess &) = delete;
  AgentProcess &operator=(const AgentProcess &) = delete;
  ~AgentProcess();

  /// Starts the agent with these options and waits until it listens. False if it did not.
  bool start(const std::vector<std::string> &options);

  void signal(int number) const;

  /// Ends the agent, stopped or not.
  void stop();

 private:
  std::string folder_;
  [[maybe_unused]] pid_t pid_ = -1;  // on a Mac launchd has it
  int output_ = -1;
};

#endif
