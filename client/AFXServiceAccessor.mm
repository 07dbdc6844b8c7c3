#import "client/AFXServiceAccessor.h"

#import "client/AFXAgentConnection.h"

/// A call of the accessor that waits for the first check: takes the checked connection, or nil.
typedef void (^AFXConnectionWaiter)(NSXPCConnection *connection);

/// Long enough for an agent that the system has to start first.
static const int64_t sFirstCheckTimeout = 8 * NSEC_PER_SEC;

/// As long as a caller waits for a reply: an agent that hangs holds up one caller, and no other.
static const int64_t sCheckTimeout = 2 * NSEC_PER_SEC;

@implementation AFXServiceAccessor

- (instancetype)initAccessor {
  self = [super init];
  if (self) {
    pthread_mutex_init(&_mutex, NULL);
    _waiters = [[NSMutableArray alloc] init];
  }
  return self;
}

- (void)dealloc {
  [_connection invalidate];
  [_connection release];
  [_waiters release];
  pthread_mutex_destroy(&_mutex);
  [super dealloc];
}

#pragma mark - Requests

- (void)accessService:(AFXServiceHandler)handler {
  [self accessService:handler
         errorHandler:^(NSError *){
         }];
}

- (void)accessService:(AFXServiceHandler)handler errorHandler:(void (^)(NSError *))errorHandler {
  AFXConnectionWaiter waiter = ^(NSXPCConnection *connection) {
    handler([connection remoteObjectProxyWithErrorHandler:errorHandler]);
  };

  pthread_mutex_lock(&_mutex);
  NSXPCConnection *connection = [[self openedConnection] retain];
  _isHung |= _checkDeadline && dispatch_time(DISPATCH_TIME_NOW, 0) >= _checkDeadline;
  const BOOL isHung = _isHung;
  const BOOL isChecked = _isChecked;
  if (!isHung && !isChecked) {
    AFXConnectionWaiter kept = [waiter copy];
    [_waiters addObject:kept];
    [kept release];
  }
  pthread_mutex_unlock(&_mutex);

  if (isHung) {
    waiter(nil);
  } else if (isChecked) {
    waiter(connection);
  }
  [self check:connection by:dispatch_time(DISPATCH_TIME_NOW, sCheckTimeout)];
  [connection release];
}

#pragma mark - Checks

/// Asks the agent over the connection whether it serves and has dealt with what was sent before,
/// which somebody waits for until `deadline`. While it has been asked and has not answered yet, or
/// the requests wait for the first answer, it is asked once more behind that.
- (void)check:(NSXPCConnection *)connection by:(dispatch_time_t)deadline {
  pthread_mutex_lock(&_mutex);
  const uint64_t generation = _generation;
  const BOOL isFirst = !_isChecked;
  const BOOL isOpen = connection == _connection;
  const BOOL starts = isOpen && _checkDeadline == 0;
  if (starts) {
    _checkDeadline = deadline;
  }
  if (isOpen && (isFirst || !starts)) {
    _nextDeadline = _nextDeadline ? MIN(_nextDeadline, deadline) : deadline;
  }
  pthread_mutex_unlock(&_mutex);
  if (!starts) {
    return;
  }

  id<AFXProvisioningService> service = [connection remoteObjectProxyWithErrorHandler:^(NSError *) {
    [self dropConnectionOfGeneration:generation];
  }];
  [service checkConnectionWithCallback:^(BOOL isReady) {
    if (isReady) {
      [self admitWaitersOfGeneration:generation];
    } else {
      [self dropConnectionOfGeneration:generation];
    }
  }];
  if (isFirst) {
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, sFirstCheckTimeout),
                   dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), ^{
                     [self dropUncheckedConnectionOfGeneration:generation];
                   });
  }
}

/// Hands the connection to everyone who waits for it, now that the agent has answered on it.
- (void)admitWaitersOfGeneration:(uint64_t)generation {
  pthread_mutex_lock(&_mutex);
  if (generation != _generation || _connection == nil) {
    pthread_mutex_unlock(&_mutex);
    return;
  }
  NSXPCConnection *connection = [_connection retain];
  NSArray *waiters = [self takenWaiters];
  _isChecked = YES;
  _isHung = NO;
  _checkDeadline = 0;
  const dispatch_time_t nextDeadline = _nextDeadline;
  _nextDeadline = 0;
  pthread_mutex_unlock(&_mutex);

  for (AFXConnectionWaiter waiter in waiters) {
    waiter(connection);
  }
  if (nextDeadline) {
    // A deadline that is over by now says nothing of an agent that has just been heard.
    const BOOL isOver = dispatch_time(DISPATCH_TIME_NOW, 0) >= nextDeadline;
    [self check:connection
             by:isOver ? dispatch_time(DISPATCH_TIME_NOW, sCheckTimeout) : nextDeadline];
  }
  [connection release];
}

#pragma mark - Connection

/// The connection in use, opened if there is none. Call with the mutex held.
- (NSXPCConnection *)openedConnection {
  if (_connection == nil) {
    const uint64_t generation = ++_generation;
    _isChecked = NO;
    _checkDeadline = 0;
    _nextDeadline = 0;
    _connection = __AFXOpenConnection(^{
      [self dropConnectionOfGeneration:generation];
    });
  }
  return _connection;
}

/// Those who wait, who do so no longer. Call with the mutex held.
- (NSArray *)takenWaiters {
  NSArray *waiters = [NSArray arrayWithArray:_waiters];
  [_waiters removeAllObjects];
  return waiters;
}

- (void)dropConnectionOfGeneration:(uint64_t)generation {
  [self dropConnectionOfGeneration:generation isHung:NO];
}

/// For the end of a first check's time. A connection that was checked meanwhile stays.
- (void)dropUncheckedConnectionOfGeneration:(uint64_t)generation {
  [self dropConnectionOfGeneration:generation isHung:YES];
}

/// Forgets the connection, so that the next request opens a new one, and hands nil to everyone who
/// waits for it.
- (void)dropConnectionOfGeneration:(uint64_t)generation isHung:(BOOL)isHung {
  pthread_mutex_lock(&_mutex);
  if (generation != _generation || _connection == nil || (isHung && _isChecked)) {
    pthread_mutex_unlock(&_mutex);
    return;
  }
  NSXPCConnection *connection = _connection;
  NSArray *waiters = [self takenWaiters];
  _connection = nil;
  _isHung = isHung;
  pthread_mutex_unlock(&_mutex);

  for (AFXConnectionWaiter waiter in waiters) {
    waiter(nil);
  }
  [connection invalidate];
  [connection release];
}

@end

AFXServiceAccessor *__AFXSharedServiceAccessor(void) {
  static AFXServiceAccessor *sAccessor;
  static dispatch_once_t sOnce;
  dispatch_once(&sOnce, ^{
    sAccessor = [[AFXServiceAccessor alloc] initAccessor];
  });
  return sAccessor;
}
