// The objects behind NSXPCListener.

#import <Foundation/Foundation.h>

#import "listener_core.h"

@interface PlatformXPCListener : NSXPCListener {
  std::shared_ptr<platform::xpc::ListenerCore> *_core;
  long _references;
}

/// @param service  As `ListenerCore`'s.
- (instancetype)initWithService:(const char *)service;

@end
