#include "detached_thread.h"

#include <pthread.h>
#include <signal.h>

#include <memory>
#include <utility>

#include "../threads/ThreadEntry.h"

namespace platform::xpc {

namespace {

struct Call {
  const char *name;
  std::function<void()> work;
};

void *Run(void *context) {
  std::unique_ptr<Call> call(static_cast<Call *>(context));
  pthread_setname_np(pthread_self(), call->name);
  PlatformEnterThread();
  call->work();
  // Together with what it has captured, while this thread is still known.
  call.reset();
  PlatformLeaveThread();
  return nullptr;
}

}  // namespace

bool StartDetachedThread(const char *name, std::function<void()> work) {
  std::unique_ptr<Call> call(new Call{name, std::move(work)});
  // The host's signal handlers belong to its own threads.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const bool made = pthread_create(&thread, nullptr, Run, call.get()) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (made) {
    call.release();
    pthread_detach(thread);
  }
  return made;
}

}  // namespace platform::xpc
