#include <Block.h>
#import <Foundation/NSArray.h>
#include <dispatch/dispatch.h>
#include <errno.h>
#include <pthread.h>

#include "DispatchCallout.h"
#include "DispatchClock.h"
#include "DispatchTrap.h"

@interface OS_dispatch_group : NSObject <OS_dispatch_group> {
 @package
  pthread_mutex_t _lock;
  pthread_cond_t _emptied;
  NSUInteger _entered;
  NSUInteger _generation;          // How often the group has become empty.
  NSMutableArray *_notifications;  // Blocks to call when it becomes empty; each keeps the group.
}
@end

@implementation OS_dispatch_group

- (id)init {
  if ((self = [super init])) {
    pthread_mutex_init(&_lock, NULL);
    DispatchConditionInit(&_emptied);
    _notifications = [NSMutableArray new];
  }
  return self;
}

- (void)dealloc {
  if (_entered) {
    DispatchTrap("Group object deallocated while in use");
  }
  [_notifications release];
  pthread_cond_destroy(&_emptied);
  pthread_mutex_destroy(&_lock);
  [super dealloc];
}

@end

dispatch_group_t dispatch_group_create(void) { return [OS_dispatch_group new]; }

void dispatch_group_enter(dispatch_group_t object) {
  OS_dispatch_group *group = (OS_dispatch_group *)object;
  pthread_mutex_lock(&group->_lock);
  ++group->_entered;
  pthread_mutex_unlock(&group->_lock);
}

void dispatch_group_leave(dispatch_group_t object) {
  OS_dispatch_group *group = (OS_dispatch_group *)object;
  // A waiter may give up the last other reference as soon as the count is down.
  [group retain];
  pthread_mutex_lock(&group->_lock);
  if (!group->_entered) {
    DispatchTrap("Unbalanced call to dispatch_group_leave()");
  }
  NSMutableArray *due = nil;
  const BOOL emptied = --group->_entered == 0;
  if (emptied) {
    ++group->_generation;
    due = group->_notifications;
    group->_notifications = [NSMutableArray new];
  }
  pthread_mutex_unlock(&group->_lock);
  // Without the lock, for which those who wake would wait at once.
  if (emptied) {
    pthread_cond_broadcast(&group->_emptied);
  }
  for (dispatch_block_t notify in due) {
    notify();
    [group release];
  }
  [due release];
  [group release];
}

intptr_t dispatch_group_wait(dispatch_group_t object, dispatch_time_t timeout) {
  OS_dispatch_group *group = (OS_dispatch_group *)object;
  pthread_mutex_lock(&group->_lock);
  const NSUInteger generation = group->_generation;
  BOOL empty;
  BOOL inTime = YES;
  while (!(empty = !group->_entered || group->_generation != generation) && inTime) {
    inTime = DispatchConditionWait(&group->_emptied, &group->_lock, timeout);
  }
  pthread_mutex_unlock(&group->_lock);
  return empty ? 0 : ETIMEDOUT;
}

void dispatch_group_notify(dispatch_group_t object, dispatch_queue_t queue,
                           dispatch_block_t block) {
  OS_dispatch_group *group = (OS_dispatch_group *)object;
  pthread_mutex_lock(&group->_lock);
  BOOL now = !group->_entered;
  if (!now) {
    dispatch_block_t notify = Block_copy(^{
      dispatch_async(queue, block);
    });
    [group->_notifications addObject:notify];
    Block_release(notify);
    [group retain];
  }
  pthread_mutex_unlock(&group->_lock);
  if (now) {
    dispatch_async(queue, block);
  }
}

void dispatch_group_async(dispatch_group_t group, dispatch_queue_t queue, dispatch_block_t block) {
  dispatch_group_enter(group);
  // Given up before whoever waits goes on, and so not captured as a block.
  void *work = Block_copy(block);
  dispatch_async(queue, ^{
    DispatchCallAndReleaseBlock(work);
    dispatch_group_leave(group);
  });
}
