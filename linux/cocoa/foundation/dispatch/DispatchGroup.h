#import <Foundation/NSObject.h>
#include <dispatch/dispatch.h>
#include <pthread.h>

@interface OS_dispatch_group : NSObject <OS_dispatch_group> {
 @package
  pthread_mutex_t _lock;
  pthread_cond_t _emptied;
  NSUInteger _entered;
  NSUInteger _generation;  // How often the group has become empty.
  struct DispatchNotification *_firstNotification;
  struct DispatchNotification *_lastNotification;
}
@end
