#include "../agent_process.h"

#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

AgentProcess::AgentProcess() {
  folder_ = (std::filesystem::temp_directory_path() / "agent-process-").string() +
            std::to_string(getpid()) + "-" + std::to_string(reinterpret_cast<uintptr_t>(this));
  std::filesystem::create_directory(folder_);
  std::filesystem::permissions(folder_, std::filesystem::perms::owner_all);
  setenv("COCOA_SERVICE_DIR", folder_.c_str(), 1);
}

AgentProcess::~AgentProcess() {
  stop();
  std::filesystem::remove_all(folder_);
}

bool AgentProcess::start(const std::vector<std::string> &options) {
  std::vector<std::string> words = {PELLMAR_DEV_AGENT, "serve"};
  words.insert(words.end(), options.begin(), options.end());
  std::vector<char *> arguments;
  for (std::string &word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);

  int ends[2];
  if (pipe(ends) != 0) {
    return false;
  }
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&files, ends[0]);
  posix_spawn_file_actions_addclose(&files, ends[1]);
  const int failed = posix_spawn(&pid_, arguments[0], &files, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  close(ends[1]);
  // Its first line says that it listens. What comes later stays in the pipe, which has room enough.
  char first = 0;
  const bool isListening = failed == 0 && read(ends[0], &first, 1) == 1 && first == '{';
  output_ = ends[0];
  return isListening;
}

void AgentProcess::signal(int number) const { kill(pid_, number); }

void AgentProcess::stop() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(output_);
    pid_ = -1;
  }
}
