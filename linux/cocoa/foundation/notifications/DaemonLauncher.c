// For POSIX_SPAWN_SETSID.
#define _GNU_SOURCE

#include "DaemonLauncher.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

void DaemonLauncherStart(void) {
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // The thread that calls this blocks signals; the daemon shall not. A session of its own keeps it
  // from what is typed at the terminal.
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    posix_spawn_file_actions_addopen(&files, descriptor, "/dev/null", O_RDWR, 0);
  }
  char *const arguments[] = {"gdnc", "--auto", NULL};
  pid_t child;
  if (posix_spawnp(&child, arguments[0], &files, &attributes, arguments, environ) == 0) {
    while (waitpid(child, NULL, 0) < 0 && errno == EINTR) {
      continue;
    }
  }
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
}
