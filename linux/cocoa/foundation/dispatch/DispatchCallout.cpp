#include "DispatchCallout.h"

// `noexcept` is what ends the process for C++ exceptions: the Objective-C handlers below this frame
// let them pass, and the frames above may be a run loop's.

static void Call(dispatch_function_t function, void *context, bool withPool) noexcept {
  DispatchProtected(function, context, withPool);
}

void DispatchCallout(dispatch_function_t function, void *context, bool withPool) {
  Call(function, context, withPool);
}
