// Makes the name NSXPCConnection, which GNUstep's stub holds, stand for the layer's class.

#import <Foundation/Foundation.h>

@interface NSXPCConnection (Platform)
+ (id)allocWithZone:(NSZone *)zone;
@end
