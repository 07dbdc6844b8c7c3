#ifndef PLATFORM_NSAPPLICATION_LAUNCH_H
#define PLATFORM_NSAPPLICATION_LAUNCH_H

#ifdef __cplusplus
extern "C" {
#endif

/// Has `install` called when the application object is made: its display server and a drawing
/// context are there then, its windows are not. To be called from a constructor. What changes the
/// toolkit is not installed while the library is loaded: most processes that load it never show a
/// window, and GNUstep's classes are not initialized then.
void PlatformInstallAtLaunch(void (*install)(void));

#ifdef __cplusplus
}
#endif

#endif
