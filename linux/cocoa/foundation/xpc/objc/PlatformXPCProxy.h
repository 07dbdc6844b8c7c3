// What stands for the object at the other end. Each protocol has a subclass made at run time.

#import <Foundation/Foundation.h>

#import "connection_core.h"

@class PlatformXPCInterface;

@interface PlatformXPCProxy : NSObject <NSXPCProxyCreating> {
  NSXPCConnection *_connection;
  platform::xpc::ConnectionCore *_core;
  PlatformXPCInterface *_interface;
  id _errorHandler;
}

/// Returns a proxy with the methods of `interface`.
/// @param core  The connection's; lives as long as it. Without one the proxy sends nothing, but notes
///              the types of the reply blocks that it is given.
+ (instancetype)proxyForConnection:(NSXPCConnection *)connection
                              core:(platform::xpc::ConnectionCore *)core
                         interface:(PlatformXPCInterface *)interface
                      errorHandler:(id)errorHandler;

@end
