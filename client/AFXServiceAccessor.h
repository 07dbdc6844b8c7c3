#ifndef AFX_SERVICE_ACCESSOR_H
#define AFX_SERVICE_ACCESSOR_H

#import <Foundation/Foundation.h>
#include <pthread.h>

#import "client/AFXProvisioningService.h"

NS_ASSUME_NONNULL_BEGIN

/// Receives the agent's remote proxy, or nil when no connection to it can be had.
typedef void (^AFXServiceHandler)(id<AFXProvisioningService> _Nullable service);

/// The one way to the agent: keeps a connection to it, and opens a new one for the next request
/// after the agent went away. All methods may be called from any thread.
@interface AFXServiceAccessor : NSObject {
 @private
  // Guards everything below. Never held while a caller's block runs.
  pthread_mutex_t _mutex;
  NSXPCConnection *_connection;
  // The connection's proxy for usage events, kept since there may be very many of them.
  id<AFXProvisioningService> _eventService;
  // Until when usage events do not look for an agent again; 0 when the last one answered.
  dispatch_time_t _restEnd;
  // Tells a late callback of a dropped connection from one of the connection in use. Blocks capture
  // this number instead of the connection, which would keep itself alive through its own handlers.
  uint64_t _generation;
  BOOL _isChecked;
  // Calls that wait for the first check of the connection; nil while no check is under way.
  NSMutableArray *_waiters;
}

- (instancetype)init NS_UNAVAILABLE;

/// Calls `handler` exactly once with the agent's proxy or with nil: at once on the calling thread
/// when the connection is known to work, else as soon as the agent has answered a first check or
/// proved to be missing, on a queue of the connection or a global one. An agent that has not
/// answered the check within eight seconds counts as missing.
- (void)accessService:(AFXServiceHandler)handler;

/// As `accessService:`; besides, `errorHandler` runs once, on a queue of the connection, for a
/// message sent to the proxy that ends without its reply block being called.
- (void)accessService:(AFXServiceHandler)handler
         errorHandler:(nullable void (^)(NSError *error))errorHandler;

/// Hands a usage event to the connection before it returns, and never waits for the agent. It does
/// not wait for the first check either: an event reported just before the process ends would be
/// lost by that. For a moment after the agent proved to be missing events are dropped at once,
/// since looking for it costs many times what an event may.
- (void)reportUsageEvent:(NSString *)event eventInfo:(nullable NSDictionary *)eventInfo;

@end

/// The process's accessor. Makes no connection until one of its methods is called.
AFXServiceAccessor *__AFXSharedServiceAccessor(void);

NS_ASSUME_NONNULL_END

#endif
