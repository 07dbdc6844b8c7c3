#import "NSXPCListener+Platform.h"

#import "PlatformXPCListener.h"

@implementation NSXPCListener (Platform)

+ (id)allocWithZone:(NSZone *)zone {
  Class made = self == [NSXPCListener class] ? [PlatformXPCListener class] : self;
  return NSAllocateObject(made, 0, zone);
}

@end

@implementation NSXPCListener (NSXPCListenerCreation)

+ (NSXPCListener *)anonymousListener {
  return [[[PlatformXPCListener alloc] initWithService:""] autorelease];
}

@end
