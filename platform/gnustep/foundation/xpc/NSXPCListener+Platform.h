// Makes the name NSXPCListener, which GNUstep's stub holds, stand for the layer's class.

#import <Foundation/Foundation.h>

@interface NSXPCListener (Platform)
+ (id)allocWithZone:(NSZone *)zone;
@end
