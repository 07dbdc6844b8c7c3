// The objects behind NSXPCConnection.

#import <Foundation/Foundation.h>

#import "connection_core.h"

@interface PlatformXPCConnection : NSXPCConnection {
  std::shared_ptr<platform::xpc::ConnectionCore> *_core;
  long _references;
  NSString *_serviceName;
  NSXPCListenerEndpoint *_endpoint;
}

/// A connection that a listener has accepted.
- (instancetype)initWithAcceptedSocket:(platform::xpc::Descriptor)socket;

@end
