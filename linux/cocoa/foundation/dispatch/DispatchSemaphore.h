#import <Foundation/NSObject.h>
#include <dispatch/dispatch.h>
#include <pthread.h>

@interface OS_dispatch_semaphore : NSObject <OS_dispatch_semaphore> {
 @package
  pthread_mutex_t _lock;
  pthread_cond_t _raised;
  NSInteger _value;  // Below zero: how many wait.
  NSInteger _original;
  NSInteger _wakeups;  // Signals that a waiter has still to take.
}
@end
