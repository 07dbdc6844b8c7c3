#ifndef PLATFORM_DISPATCH_HERE_H
#define PLATFORM_DISPATCH_HERE_H

#include <dispatch/dispatch.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Runs `function` on this thread as a block of the serial `queue`, if nothing of that queue runs
/// or waits: for a thread that has something for a queue and would only wake another to do it.
/// Returns whether it ran.
BOOL DispatchTryToRunHere(dispatch_queue_t queue, void *context, dispatch_function_t function);

#ifdef __cplusplus
}
#endif

#endif
