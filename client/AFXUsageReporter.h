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
  // Events sent over the connection, and how many of them the agent has acknowledged.
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
/// Dropped silently are: what cannot be sent; with 4,096 events that the agent has not
/// acknowledged, further ones until it has (back-pressure); and those that come while it is
/// missing, since to connect costs many times what an event may. Attempts to connect have a retry
/// delay of 20 ms that doubles up to 250 ms.
- (void)reportUsageEvent:(NSString *)event eventInfo:(nullable NSDictionary *)eventInfo;

@end

/// The process's reporter. Makes no connection until the first event.
AFXUsageReporter *__AFXSharedUsageReporter(void);

NS_ASSUME_NONNULL_END

#endif
