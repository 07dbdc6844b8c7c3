#ifndef AFX_SERVICE_ACCESSOR_H
#define AFX_SERVICE_ACCESSOR_H

#import <Foundation/Foundation.h>
#include <pthread.h>

#import "client/AFXProvisioningService.h"

NS_ASSUME_NONNULL_BEGIN

/// Receives the agent's remote proxy, or nil when no connection to it can be had.
typedef void (^AFXServiceHandler)(id<AFXProvisioningService> _Nullable service);

/// The one way to the agent for all that is answered: keeps a connection to it, and opens a new one
/// for the next request after the agent went away. All methods may be called from any thread.
///
/// The agent is checked on a new connection before anything else is asked, and behind every
/// request, so that it is known whether it still answers: while it has left a check unanswered for
/// two seconds, nobody waits for it any more. It is there again as soon as a check is answered.
@interface AFXServiceAccessor : NSObject {
 @private
  // Guards everything below. Never held while a caller's block runs.
  pthread_mutex_t _mutex;
  NSXPCConnection *_connection;
  // Tells a late callback of a dropped connection from one of the connection in use. Blocks capture
  // this number instead of the connection, which would keep itself alive through its own handlers.
  uint64_t _generation;
  BOOL _isChecked;
  // When the outstanding check times out; 0 while there is none.
  dispatch_time_t _checkDeadline;
  // The same for what was sent behind that check, or waits for it; 0 while there is nothing.
  dispatch_time_t _nextDeadline;
  // Whether the agent has left a check unanswered, and nothing has been heard of it since.
  BOOL _isHung;
  // Calls that wait for the first check of the connection.
  NSMutableArray *_waiters;
}

- (instancetype)init NS_UNAVAILABLE;

/// Calls `handler` exactly once with the agent's proxy or with nil: at once on the calling thread
/// when the connection is known to work or the agent to hang, else as soon as the agent has
/// answered a first check or proved to be missing, on a queue of the connection or a global one. An
/// agent that has not answered the check within eight seconds counts as missing.
- (void)accessService:(AFXServiceHandler)handler;

/// As `accessService:`; besides, `errorHandler` runs once, on a queue of the connection, for a
/// message sent to the proxy that ends without its reply block being called.
- (void)accessService:(AFXServiceHandler)handler
         errorHandler:(void (^)(NSError *error))errorHandler;

@end

/// The process's accessor. Makes no connection until one of its methods is called.
AFXServiceAccessor *__AFXSharedServiceAccessor(void);

NS_ASSUME_NONNULL_END

#endif
