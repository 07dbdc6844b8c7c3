// The objects behind NSXPCListenerEndpoint.

#import <Foundation/Foundation.h>

#include <functional>

#include "transport/service_directory.h"

@interface PlatformXPCListenerEndpoint : NSXPCListenerEndpoint {
  std::function<platform::xpc::Descriptor()> *_connect;
}

/// @param connect  Returns one end of a new connection, or nothing when the listener has gone.
- (instancetype)initWithConnect:(std::function<platform::xpc::Descriptor()>)connect;

- (std::function<platform::xpc::Descriptor()>)connect;

@end
