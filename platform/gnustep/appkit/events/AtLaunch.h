#ifndef PLATFORM_APPKIT_AT_LAUNCH_H
#define PLATFORM_APPKIT_AT_LAUNCH_H

/// Has `install` called when an application begins to launch in this process: its display server is
/// there then, its windows are not. To be called while the library is loaded.
void PlatformInstallAtLaunch(void (*install)(void));

#endif
