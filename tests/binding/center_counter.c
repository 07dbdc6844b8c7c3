// Preloaded into a process: tells on descriptor 4 of each call to the distributed center that adds
// or removes an observer, a letter each, and hands it on.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

static void Tell(char letter) {
  int file = open(getenv("CENTER_COUNTER_FILE"), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  (void)!write(file, &letter, 1);
  close(file);
}

void CFNotificationCenterAddObserver(void *center, const void *observer, void *callback, void *name,
                                     const void *object, long behavior) {
  void (*next)(void *, const void *, void *, void *, const void *, long) =
      dlsym(RTLD_NEXT, "CFNotificationCenterAddObserver");
  Tell(behavior == 4 ? 'a' : '?');
  next(center, observer, callback, name, object, behavior);
}

void CFNotificationCenterRemoveObserver(void *center, const void *observer, void *name,
                                        const void *object) {
  void (*next)(void *, const void *, void *, const void *) =
      dlsym(RTLD_NEXT, "CFNotificationCenterRemoveObserver");
  Tell(object == NULL ? 'r' : '?');
  next(center, observer, name, object);
}
