//
// pellmar-dev-agent: stands in for the Pellmar agent while an application is developed and tested.
//

#import <Foundation/Foundation.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#import "agent/PLDevAgentJournal.h"
#include "agent/PLDevAgentMemory.h"
#include "agent/PLDevAgentOptions.h"
#import "agent/PLDevAgentService.h"
#include "agent/PLServiceRegistration.h"
#import "client/Pellmar.h"

static const int sExitUsage = 2;

static int Refuse(const std::string &problem) {
  fprintf(stderr, "pellmar-dev-agent: %s (see --help)\n", problem.c_str());
  return sExitUsage;
}

static int Serve(int count, char *const arguments[]) {
  PLDevAgentOptions options;
  if (const auto problem = options.parse(count, arguments)) {
    return Refuse(*problem);
  }
  if (const auto problem = PLServiceRegistrationProblem(getppid())) {
    return Refuse(*problem);
  }
  PLDevAgentMemory memory;
  if (options.stateFile) {
    if (const auto problem = memory.open(*options.stateFile)) {
      return Refuse(*problem);
    }
  }

  // Blocked before any thread is made, so that the signals wait for sigwait below.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  PLDevAgentJournal *journal = [[PLDevAgentJournal alloc] init];
  PLDevAgentService *service = [[PLDevAgentService alloc] initWithOptions:options
                                                                   memory:memory
                                                                  journal:journal];
  NSXPCListener *listener =
      [[NSXPCListener alloc] initWithMachServiceName:AFXProvisioningServiceName];
  listener.delegate = service;
  [listener resume];
  [journal recordListeningForService:AFXProvisioningServiceName];

  int signal = 0;
  sigwait(&signals, &signal);
  [listener invalidate];
  [listener release];
  [service release];
  [journal release];
  return 0;
}

static int Log(int count, char *const arguments[]) {
  PLDevAgentMessage message;
  if (const auto problem = message.parse(count, arguments)) {
    return Refuse(*problem);
  }
  NSMutableDictionary *userInfo = [NSMutableDictionary dictionary];
  [userInfo setObject:@(message.text.c_str()) forKey:AFXProvisioningDebugMessageKey];
  if (message.appName) {
    [userInfo setObject:@(message.appName->c_str()) forKey:AFXProvisioningDebugAppNameKey];
  }
  CFNotificationCenterPostNotification(
      CFNotificationCenterGetDistributedCenter(),
      (CFNotificationName)AFXProvisioningDebugNotificationName,
      (const void *)[NSString stringWithFormat:@"%ld", message.pid], (CFDictionaryRef)userInfo,
      YES);
  return 0;
}

static int Help(void) {
  printf(
      "usage: pellmar-dev-agent serve [OPTION…]\n"
      "       pellmar-dev-agent log --pid PID [--app-name NAME] MESSAGE\n"
      "\n"
      "serve answers applications in the place of the Pellmar agent until it is sent SIGTERM, and\n"
      "prints what they ask, one JSON object a line. On a Mac scripts/agent has launchd start it.\n"
      "Options, with what holds without them:\n"
      "%s"
      "\n"
      "log sends one debug message to the log of a process that has debug logging on.\n",
      PLDevAgentOptions::help());
  return 0;
}

int main(int argc, char *argv[]) {
  @autoreleasepool {
    for (int i = 1; i < argc; ++i) {
      if (strcmp(argv[i], "--help") == 0) {
        return Help();
      }
    }
    if (argc < 2) {
      return Refuse("what is it to do: serve or log?");
    }
    if (strcmp(argv[1], "serve") == 0) {
      return Serve(argc - 1, argv + 1);
    }
    if (strcmp(argv[1], "log") == 0) {
      return Log(argc - 1, argv + 1);
    }
    return Refuse(std::string("unknown command: ") + argv[1]);
  }
}
