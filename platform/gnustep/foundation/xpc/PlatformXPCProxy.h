// What stands for the object at the other end. Each protocol has a subclass made at run time.

#import <Foundation/Foundation.h>

@class PlatformXPCConnection, PlatformXPCInterface;

@interface PlatformXPCProxy : NSObject {
 @public
  PlatformXPCConnection *_connection;
  PlatformXPCInterface *_interface;
  id _errorHandler;
}

- (instancetype)initWithConnection:(PlatformXPCConnection *)connection
                         interface:(PlatformXPCInterface *)interface
                      errorHandler:(id)errorHandler;

@end
