#include <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>
#include <pthread.h>

#import "DaemonLink.h"

/// The distributed notification center of this process. Its methods never block, never raise and
/// may be called from any thread: they change what is wanted, and a thread of its own, started by
/// the first of them, brings the daemon into line with that, as often as the daemon comes and goes.
@interface DistributedCenter : NSObject <DaemonLinkReceiver, RunLoopEvents> {
  // Guarded by the lock.
  pthread_mutex_t _lock;
  pthread_cond_t _stopped;
  NSMutableDictionary *_wanted;  // The observers by their numbers.
  NSMutableArray *_posts;        // What is still to be sent.
  uint64_t _lastNumber;
  uint64_t _sent;  // How many notifications have left _posts.
  BOOL _started;
  BOOL _stopping;
  BOOL _hasStopped;
  int _descriptor;

  // Of its own thread.
  DaemonLink *_link;
  NSMutableSet *_registered;  // The numbers that the daemon knows.
  BOOL _triedToStart;         // The daemon, since it was last there.
  NSTimeInterval _pause;      // Before it is looked for again.
}

+ (DistributedCenter *)center;

/// @param name, object  Copied. One of them must be given.
- (void)addObserver:(const void *)observer
           callback:(CFNotificationCallback)callback
               name:(NSString *)name
             object:(NSString *)object
           behavior:(CFNotificationSuspensionBehavior)behavior;

/// @param name, object  nil for any.
- (void)removeObserver:(const void *)observer name:(NSString *)name object:(NSString *)object;

/// @param archive  The archived user info.
- (void)postName:(NSString *)name
                object:(NSString *)object
              userInfo:(NSData *)archive
    deliverImmediately:(BOOL)deliverImmediately;

@end
