// For the name of a thread.
#define _GNU_SOURCE

#import "PlatformThread.h"

#import <Foundation/NSThread.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>

struct Start {
  const char *name;
  void (*work)(void *context);
  void *context;
};

static void *Run(void *argument) {
  const struct Start start = *(struct Start *)argument;
  free(argument);
  pthread_setname_np(pthread_self(), start.name);
  GSRegisterCurrentThread();
  start.work(start.context);
  GSUnregisterCurrentThread();
  return NULL;
}

bool PlatformStartThread(const char *name, void (*work)(void *context), void *context) {
  struct Start *start = malloc(sizeof(*start));
  if (!start) {
    return false;
  }
  *start = (struct Start){name, work, context};
  // Signals are for the threads of the program.
  sigset_t blocked, former;
  sigfillset(&blocked);
  const int faults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF};
  for (size_t i = 0; i < sizeof(faults) / sizeof(*faults); ++i) {
    sigdelset(&blocked, faults[i]);
  }
  pthread_sigmask(SIG_SETMASK, &blocked, &former);
  pthread_t thread;
  const bool started = pthread_create(&thread, NULL, Run, start) == 0;
  pthread_sigmask(SIG_SETMASK, &former, NULL);
  if (started) {
    pthread_detach(thread);
  } else {
    free(start);
  }
  return started;
}
