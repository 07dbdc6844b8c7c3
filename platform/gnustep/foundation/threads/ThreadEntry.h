#ifndef PLATFORM_FOUNDATION_THREADENTRY_H
#define PLATFORM_FOUNDATION_THREADENTRY_H

#ifdef __cplusplus
extern "C" {
#endif

/// Makes the calling thread, which is not one of Foundation's own, known to it: called once, before
/// any object is used there.
void PlatformEnterThread(void);

/// Undoes that: called once, after the last use of an object there.
void PlatformLeaveThread(void);

#ifdef __cplusplus
}
#endif

#endif
