#ifndef PLATFORM_XPC_ERROR_H
#define PLATFORM_XPC_ERROR_H

#import <Foundation/Foundation.h>

namespace platform::xpc {

/// Returns an error of NSCocoaErrorDomain, autoreleased, with texts in English.
/// @param code  One of the NSXPCConnection… codes.
/// @param service  The name of the service, or nil.
NSError *MakeError(NSInteger code, NSString *service);

}  // namespace platform::xpc

#endif
