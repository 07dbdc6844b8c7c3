// What stands for the object at the other end. Each protocol has a subclass made at run time.

#import <Foundation/Foundation.h>
#include <ffi.h>

@class PlatformXPCConnection, PlatformXPCInterface;

@interface PlatformXPCProxy : NSObject {
 @public
  PlatformXPCConnection *_connection;
  PlatformXPCInterface *_interface;
  id _errorHandler;
}

- (instancetype)initWithConnection:(PlatformXPCConnection *)connection
                         interface:(PlatformXPCInterface *)interface
                      errorHandler:(id)errorHandler;

@end

/// The code of every proxy's methods.
/// @param method  The `platform::xpc::Method` that was called.
extern "C" void PlatformXPCProxySend(ffi_cif *cif, void *result, void **arguments, void *method);
