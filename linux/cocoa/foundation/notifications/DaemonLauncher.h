#ifndef PLATFORM_DAEMON_LAUNCHER_H
#define PLATFORM_DAEMON_LAUNCHER_H

/// Starts GNUstep's notification daemon, if it is installed, and returns once it has put itself in
/// the background, which takes some tenths of a second. It ends a while after its last client.
///
/// Not through NSTask as GNUstep does it: that takes over the process's handler for SIGCHLD, which
/// a host that watches children of its own relies on.
void DaemonLauncherStart(void);

#endif
