#import "PlatformXPCProxy.h"

#import "PlatformXPCConnection.h"
#import "PlatformXPCInterface.h"

void PlatformXPCProxySend(ffi_cif *, void *, void **arguments, void *method) {
  PlatformXPCProxy *proxy = *static_cast<PlatformXPCProxy **>(arguments[0]);
  (*proxy->_connection->_core)
      ->SendMessage(*static_cast<const platform::xpc::Method *>(method), proxy->_interface,
                    arguments + 2, proxy->_errorHandler);
}

@implementation PlatformXPCProxy

- (instancetype)initWithConnection:(PlatformXPCConnection *)connection
                         interface:(PlatformXPCInterface *)interface
                      errorHandler:(id)errorHandler {
  self = [super init];
  if (self) {
    _connection = [connection retain];
    _interface = [interface retain];
    _errorHandler = [errorHandler copy];
  }
  return self;
}

- (void)dealloc {
  [_errorHandler release];
  [_interface release];
  [_connection release];
  [super dealloc];
}

@end
