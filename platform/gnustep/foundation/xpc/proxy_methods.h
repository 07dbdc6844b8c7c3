// The code of a proxy's methods.

#ifndef PLATFORM_XPC_PROXY_METHODS_H
#define PLATFORM_XPC_PROXY_METHODS_H

#include <objc/runtime.h>

#include "protocol_methods.h"

namespace platform::xpc {

/// Returns code that sends `method`, as the implementation of a method of `PlatformXPCProxy`, or
/// nullptr when there is no memory for it.
IMP MakeProxyMethod(const Method &method);

}  // namespace platform::xpc

#endif
