#ifndef BLOCKED_QUEUES_H
#define BLOCKED_QUEUES_H

#include <dispatch/dispatch.h>

/// Blocks 70 serial queues, more than there are threads for global ones, until a call on a global
/// queue lets them go on. Returns whether it does within ten seconds.
/// @param beforeWait  Called when all has been queued.
template <typename Function>
bool AGlobalQueueGoesOnBesideBlockedOnes(Function beforeWait) {
  constexpr int kBlocked = 70;
  dispatch_semaphore_t gate = dispatch_semaphore_create(0);
  dispatch_group_t group = dispatch_group_create();
  for (int i = 0; i < kBlocked; ++i) {
    dispatch_queue_t serial = dispatch_queue_create("blocked", DISPATCH_QUEUE_SERIAL);
    dispatch_group_async(group, serial, ^{
      dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER);
    });
    dispatch_release(serial);
  }
  dispatch_async(dispatch_get_global_queue(0, 0), ^{
    for (int i = 0; i < kBlocked; ++i) {
      dispatch_semaphore_signal(gate);
    }
  });
  beforeWait();
  if (dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, 10 * NSEC_PER_SEC))) {
    return false;
  }
  dispatch_release(group);
  dispatch_release(gate);
  return true;
}

#endif
