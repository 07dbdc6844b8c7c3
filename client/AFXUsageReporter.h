#ifndef AFX_USAGE_REPORTER_H
#define AFX_USAGE_REPORTER_H

#import <Foundation/Foundation.h>
#include <pthread.h>

#import "client/AFXProvisioningService.h"

NS_ASSUME_NONNULL_BEGIN

/// Sends usage events over a connection of their own, which is opened at the first event, so that
/// nothing else ever waits behind them. Never waits for the agent. Any thread.
@interface AFXUsageReporter : NSObject {
 @private
  // Guards everything below. Not held while an event is sent: what encodes its information may be
  // the application's.
  pthread_mutex_t _mutex;
  NSXPCConnection *_connection;
  // The connection's proxy, kept since there may be very many events.
  id<AFXProvisioningService> _service;
  // Tells a late callback of a connection that was dropped from one of the connection in use.
  uint64_t _generation;
  // Events sent over the connection, and how many of them the agent is known to have taken.
  uint64_t _sent;
  uint64_t _taken;
  // Without an agent: until when events are dropped and no connection is tried, and how long that
  // last was.
  dispatch_time_t _retryTime;
  int64_t _retryDelay;
}

- (instancetype)init NS_UNAVAILABLE;

/// Hands an event to the connection before it returns. Events of one thread keep their order.
///
/// Dropped without a word are: what cannot be sent; events beyond 4,096 that the agent has not
/// taken, until it takes some; and those that come while it is missing, since looking for it costs
/// many times what an event may. It is looked for again after 20 ms, and less and less often until
/// it is every 250 ms.
- (void)reportUsageEvent:(NSString *)event eventInfo:(nullable NSDictionary *)eventInfo;

@end

/// The process's reporter. Makes no connection until the first event.
AFXUsageReporter *__AFXSharedUsageReporter(void);

NS_ASSUME_NONNULL_END

#endif
