// Makes the name NSXPCInterface, which GNUstep's stub holds, stand for the layer's class.

#import <Foundation/Foundation.h>

@interface NSXPCInterface (Platform)
+ (id)allocWithZone:(NSZone *)zone;
@end
