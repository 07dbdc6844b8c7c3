#import "client/AFXAgentConnection.h"

#import "client/AFXProvisioningService.h"
#import "client/Pellmar.h"

NSXPCConnection *__AFXOpenConnection(void (^gone)(void)) {
  static NSXPCInterface *sInterface;
  static dispatch_once_t sOnce;
  dispatch_once(&sOnce, ^{
    sInterface = [[NSXPCInterface interfaceWithProtocol:@protocol(AFXProvisioningService)] retain];
  });
  NSXPCConnection *connection =
      [[NSXPCConnection alloc] initWithMachServiceName:AFXProvisioningServiceName options:0];
  connection.remoteObjectInterface = sInterface;
  connection.interruptionHandler = gone;
  connection.invalidationHandler = gone;
  [connection resume];
  return connection;
}
