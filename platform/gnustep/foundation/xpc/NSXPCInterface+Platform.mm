#import "NSXPCInterface+Platform.h"

#import "PlatformXPCInterface.h"

@implementation NSXPCInterface (Platform)

+ (id)allocWithZone:(NSZone *)zone {
  Class made = self == [NSXPCInterface class] ? [PlatformXPCInterface class] : self;
  return NSAllocateObject(made, 0, zone);
}

@end

@implementation NSXPCInterface (NSXPCInterfaceCreation)

+ (NSXPCInterface *)interfaceWithProtocol:(Protocol *)protocol {
  return [[[PlatformXPCInterface alloc] initWithProtocol:protocol] autorelease];
}

@end
