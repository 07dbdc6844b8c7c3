#import <Foundation/NSData.h>
#import <Foundation/NSString.h>

// What GNUstep's notification daemon and its clients say to each other through distributed objects.
// No installed header declares it; it is the same in all versions of the base library since 1.20.

/// The name the daemon is registered under.
#define GDNC_SERVICE @"GDNCServer"

@protocol GDNCClient
/// @param info  An archive of the user info.
/// @param observer  The number that was given to `addObserver:…`.
- (oneway void)postNotificationName:(NSString *)name
                             object:(NSString *)object
                           userInfo:(NSData *)info
                           selector:(NSString *)selector
                                 to:(uint64_t)observer;
@end

@protocol GDNCProtocol
- (void)registerClient:(id<GDNCClient>)client;
- (void)unregisterClient:(id<GDNCClient>)client;
- (void)addObserver:(uint64_t)observer
              selector:(NSString *)selector
                  name:(NSString *)name
                object:(NSString *)object
    suspensionBehavior:(NSUInteger)suspensionBehavior
                   for:(id<GDNCClient>)client;
- (void)removeObserver:(uint64_t)observer
                  name:(NSString *)name
                object:(NSString *)object
                   for:(id<GDNCClient>)client;
- (void)setSuspended:(BOOL)suspended for:(id<GDNCClient>)client;
- (oneway void)postNotificationName:(NSString *)name
                             object:(NSString *)object
                           userInfo:(NSData *)info
                 deliverImmediately:(BOOL)deliverImmediately
                                for:(id<GDNCClient>)client;
@end
