#import "PlatformXPCProxy.h"

#import "PlatformXPCConnection.h"
#import "PlatformXPCInterface.h"

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
