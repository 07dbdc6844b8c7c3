// The objects behind NSXPCInterface.

#import <Foundation/Foundation.h>

#import "protocol_methods.h"

@interface PlatformXPCInterface : NSXPCInterface {
  Protocol *_protocol;
  const platform::xpc::ProtocolMethods *_methods;
  NSMutableDictionary *_classes;
}

- (instancetype)initWithProtocol:(Protocol *)protocol;

@property (readonly) const platform::xpc::ProtocolMethods *methods;

/// The classes set for an argument of `method` or of its reply block, or nil where none were.
- (NSSet *)classesForMethod:(const platform::xpc::Method *)method
                   argument:(NSUInteger)index
                    ofReply:(BOOL)ofReply;

@end
