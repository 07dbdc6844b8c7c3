#import <Foundation/NSObject.h>

#import "DaemonProtocol.h"

@class NSConnection;

/// Takes what the daemon sends.
@protocol DaemonLinkReceiver
- (void)receiveName:(NSString *)name
             object:(NSString *)object
           userInfo:(NSData *)archive
        forObserver:(uint64_t)number;
@end

/// One connection to the notification daemon. All of it belongs to one thread, whose run loop it
/// lives on. GNUstep's NSDistributedNotificationCenter is not used here: there is one in the
/// process, tied to the run loop of whoever used it first, and it starts the daemon through NSTask,
/// waits for it and raises. Its users in this and other processes talk to the same daemon.
///
/// Every request returns NO where it could not be made; the link is dead then. None raises.
@interface DaemonLink : NSObject <GDNCClient> {
  id<DaemonLinkReceiver> _receiver;
  NSConnection *_connection;
  id<GDNCProtocol> _daemon;
}

/// Returns nil, without a word in the log, where there is no daemon.
/// @param receiver  Not retained.
- (id)initWithReceiver:(id<DaemonLinkReceiver>)receiver;

- (BOOL)isAlive;

- (BOOL)addObserver:(uint64_t)number
               name:(NSString *)name
             object:(NSString *)object
           behavior:(NSUInteger)behavior;
- (BOOL)removeObserver:(uint64_t)number;
- (BOOL)postName:(NSString *)name
                object:(NSString *)object
              userInfo:(NSData *)archive
    deliverImmediately:(BOOL)deliverImmediately;

/// Takes back all observers.
- (BOOL)unregister;

/// Breaks the connection off. Must be called before the last release.
- (void)close;

@end
