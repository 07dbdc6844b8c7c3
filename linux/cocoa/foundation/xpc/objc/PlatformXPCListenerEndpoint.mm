#import "PlatformXPCListenerEndpoint.h"

using platform::xpc::Descriptor;

@implementation PlatformXPCListenerEndpoint

- (instancetype)initWithConnect:(std::function<Descriptor()>)connect {
  self = [super init];
  if (self) {
    _connect = new std::function<Descriptor()>(std::move(connect));
  }
  return self;
}

- (void)dealloc {
  delete _connect;
  [super dealloc];
}

- (std::function<Descriptor()>)connect {
  return *_connect;
}

@end
