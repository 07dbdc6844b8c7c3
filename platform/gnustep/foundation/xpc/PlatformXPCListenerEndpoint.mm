#import "PlatformXPCListenerEndpoint.h"

using platform::xpc::ListenerCore;

@implementation PlatformXPCListenerEndpoint

- (instancetype)initWithListener:(std::shared_ptr<ListenerCore>)listener {
  self = [super init];
  if (self) _listener = new std::weak_ptr<ListenerCore>(std::move(listener));
  return self;
}

- (void)dealloc {
  delete _listener;
  [super dealloc];
}

- (std::weak_ptr<ListenerCore>)listener {
  return *_listener;
}

@end
