#ifndef PLATFORM_FOUNDATION_PLATFORMTHREAD_H
#define PLATFORM_FOUNDATION_PLATFORMTHREAD_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Runs `work` on a thread of its own that Foundation knows, so that objects may be used there. No
/// signals are delivered to it but those of faults. Returns false when no thread is left.
/// @param name  At most 15 characters, see pthread_setname_np(3). Not copied.
bool PlatformStartThread(const char *name, void (*work)(void *context), void *context);

#ifdef __cplusplus
}
#endif

#endif
