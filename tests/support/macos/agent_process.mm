// A Mach service is registered by launchd alone, so here the agent is a job of the user's session.

#import <Foundation/Foundation.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../agent_process.h"
#import "client/Pellmar.h"

extern "C" char **environ;

namespace {

/// Runs launchctl and returns its exit code, or -1.
int launchctl(const std::vector<std::string> &options) {
  std::vector<std::string> words = {"/bin/launchctl"};
  words.insert(words.end(), options.begin(), options.end());
  std::vector<char *> arguments;
  for (std::string &word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  pid_t pid = -1;
  int status = 0;
  if (posix_spawn(&pid, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
      waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) {
    return -1;
  }
  return WEXITSTATUS(status);
}

std::string session() { return "gui/" + std::to_string(getuid()); }

std::string job() { return session() + "/" + AFXProvisioningServiceName.UTF8String; }

}  // namespace

AgentProcess::AgentProcess() {
  char name[] = "/tmp/agent-process-XXXXXX";
  folder_ = mkdtemp(name) ? name : "";
}

AgentProcess::~AgentProcess() {
  stop();
  [NSFileManager.defaultManager removeItemAtPath:@(folder_.c_str()) error:nil];
}

bool AgentProcess::start(const std::vector<std::string> &options) {
  @autoreleasepool {
    NSString *folder = @(folder_.c_str());
    NSMutableArray *words = [NSMutableArray arrayWithObjects:@PELLMAR_DEV_AGENT, @"serve", nil];
    for (const std::string &option : options) {
      [words addObject:@(option.c_str())];
    }
    NSString *output = [folder stringByAppendingPathComponent:@"output"];
    NSString *description = [folder stringByAppendingPathComponent:@"agent.plist"];
    // launchd opens the pipe for writing, which would wait for a reader.
    mkfifo(output.fileSystemRepresentation, S_IRUSR | S_IWUSR);
    output_ = open(output.fileSystemRepresentation, O_RDWR);
    NSDictionary *contents = @{
      @"Label" : AFXProvisioningServiceName,
      @"ProgramArguments" : words,
      @"MachServices" : @{AFXProvisioningServiceName : @YES},
      @"StandardOutPath" : output,
      @"RunAtLoad" : @YES,
    };
    if (output_ < 0 || ![contents writeToFile:description atomically:YES]) {
      return false;
    }
    // The job of the test before this one may still be leaving.
    bool isRegistered = false;
    for (int i = 0; i < 100 && !isRegistered; ++i) {
      isRegistered = launchctl({"bootstrap", session(), description.UTF8String}) == 0;
      if (!isRegistered) {
        usleep(50'000);
      }
    }
    char first = 0;
    return isRegistered && read(output_, &first, 1) == 1 && first == '{';
  }
}

void AgentProcess::signal(int number) const { launchctl({"kill", std::to_string(number), job()}); }

void AgentProcess::stop() {
  if (output_ >= 0) {
    launchctl({"kill", "SIGKILL", job()});
    launchctl({"bootout", job()});
    close(output_);
    output_ = -1;
    unlink((folder_ + "/output").c_str());
  }
}
