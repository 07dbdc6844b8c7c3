#ifndef PLATFORM_XPC_DETACHED_THREAD_H
#define PLATFORM_XPC_DETACHED_THREAD_H

#include <functional>

namespace platform::xpc {

/// Runs `work` on a thread of its own, where objects may be used and to which no signal is
/// delivered. Returns false when the system has no threads left.
/// @param name  At most 15 characters, see pthread_setname_np(3).
bool StartDetachedThread(const char *name, std::function<void()> work);

}  // namespace platform::xpc

#endif
