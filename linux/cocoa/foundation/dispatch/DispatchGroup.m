#import "DispatchGroup.h"

#include <Block.h>
#include <errno.h>
#include <stdlib.h>

#include "DispatchCallout.h"
#include "DispatchClock.h"
#include "DispatchTrap.h"

/// A block that waits for the group to become empty.
struct DispatchNotification {
  struct DispatchNotification *next;
  dispatch_queue_t queue;
  dispatch_block_t block;
};

@implementation OS_dispatch_group

- (id)init {
  if ((self = [super init])) {
    pthread_mutex_init(&_lock, NULL);
    DispatchConditionInit(&_emptied);
  }
  return self;
}

- (void)dealloc {
  if (_entered) {
    DispatchTrap("Group object deallocated while in use");
  }
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
  struct DispatchNotification *due = NULL;
  const BOOL emptied = --group->_entered == 0;
  if (emptied) {
    ++group->_generation;
    due = group->_firstNotification;
    group->_firstNotification = group->_lastNotification = NULL;
  }
  pthread_mutex_unlock(&group->_lock);
  // Without the lock, for which those who wake would wait at once.
  if (emptied) {
    pthread_cond_broadcast(&group->_emptied);
  }
  while (due) {
    struct DispatchNotification *next = due->next;
    dispatch_async(due->queue, due->block);
    Block_release(due->block);
    [due->queue release];
    [group release];
    free(due);
    due = next;
  }
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
    struct DispatchNotification *notification = calloc(1, sizeof(*notification));
    if (!notification) {
      abort();
    }
    notification->queue = [queue retain];
    notification->block = Block_copy(block);
    [group retain];
    if (group->_lastNotification) {
      group->_lastNotification->next = notification;
    } else {
      group->_firstNotification = notification;
    }
    group->_lastNotification = notification;
  }
  pthread_mutex_unlock(&group->_lock);
  if (now) {
    dispatch_async(queue, block);
  }
}

struct DispatchGroupCall {
  dispatch_group_t group;
  dispatch_block_t block;
};

static void RunInGroup(void *context) {
  const struct DispatchGroupCall call = *(struct DispatchGroupCall *)context;
  free(context);
  // Given up before whoever waits goes on.
  DispatchCallAndReleaseBlock((void *)call.block);
  dispatch_group_leave(call.group);
  [call.group release];
}

void dispatch_group_async(dispatch_group_t group, dispatch_queue_t queue, dispatch_block_t block) {
  dispatch_group_enter(group);
  struct DispatchGroupCall *call = malloc(sizeof(*call));
  if (!call) {
    abort();
  }
  *call = (struct DispatchGroupCall){[group retain], Block_copy(block)};
  dispatch_async_f(queue, call, RunInGroup);
}
