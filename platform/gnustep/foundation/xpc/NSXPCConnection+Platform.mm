#import "NSXPCConnection+Platform.h"

#import "PlatformXPCConnection.h"

@implementation NSXPCConnection (Platform)

+ (id)allocWithZone:(NSZone *)zone {
  Class made = self == [NSXPCConnection class] ? [PlatformXPCConnection class] : self;
  return NSAllocateObject(made, 0, zone);
}

@end

@implementation NSXPCConnection (NSXPCConnectionCurrent)

+ (NSXPCConnection *)currentConnection {
  return [[platform::xpc::ConnectionCore::Current() retain] autorelease];
}

@end
