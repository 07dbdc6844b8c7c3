#ifndef PLATFORM_DISPATCH_TRAP_H
#define PLATFORM_DISPATCH_TRAP_H

#ifdef __cplusplus
extern "C" {
#endif

/// Writes what the caller did wrong to standard error and aborts, as libdispatch does.
_Noreturn void DispatchTrap(const char *misuse);

#ifdef __cplusplus
}
#endif

#endif
