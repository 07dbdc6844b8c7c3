// The objects behind NSXPCListenerEndpoint.

#import <Foundation/Foundation.h>

#include "listener_core.h"

@interface PlatformXPCListenerEndpoint : NSXPCListenerEndpoint {
  std::weak_ptr<platform::xpc::ListenerCore> *_listener;
}

- (instancetype)initWithListener:(std::shared_ptr<platform::xpc::ListenerCore>)listener;

/// Empty when the listener has gone.
- (std::weak_ptr<platform::xpc::ListenerCore>)listener;

@end
