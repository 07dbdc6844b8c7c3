#ifndef PLATFORM_DISPATCH_WAIT_H
#define PLATFORM_DISPATCH_WAIT_H

#ifdef __cplusplus
extern "C" {
#endif

/// Sets what a thread does before it waits for a group or a semaphore: it may be about to wait for
/// the effect of something that it has put off.
void DispatchSetBeforeWait(void (*function)(void));

/// Does it. Without any lock held.
void DispatchBeforeWait(void);

#ifdef __cplusplus
}
#endif

#endif
