#ifndef PLATFORM_DISPATCH_CALLOUT_H
#define PLATFORM_DISPATCH_CALLOUT_H

#include <dispatch/dispatch.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Calls a client's function. An exception that leaves it ends the process, of whatever language.
/// @param withPool  Whether an autorelease pool of its own is around the call.
void DispatchCallout(dispatch_function_t function, void *context, bool withPool);

/// The part of it that catches Objective-C exceptions, and only those.
void DispatchProtected(dispatch_function_t function, void *context, bool withPool);

/// A client's function that calls the block `context`, and one that releases it then too.
void DispatchCallBlock(void *context);
void DispatchCallAndReleaseBlock(void *context);

#ifdef __cplusplus
}
#endif

#endif
