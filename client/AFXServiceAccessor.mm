#import "client/AFXServiceAccessor.h"

#import "client/Pellmar.h"

/// A call of the accessor that waits for the first check: takes the checked connection, or nil.
typedef void (^AFXConnectionWaiter)(NSXPCConnection *connection);

/// Long enough for an agent that the system has to start first.
static const int64_t sCheckTimeout = 8 * NSEC_PER_SEC;

/// Short enough for an agent that has just started to hear nearly everything.
static const int64_t sRestAfterFailure = 20 * NSEC_PER_MSEC;

@implementation AFXServiceAccessor

- (instancetype)initAccessor {
  self = [super init];
  if (self) {
    pthread_mutex_init(&_mutex, NULL);
  }
  return self;
}

- (void)dealloc {
  [_connection invalidate];
  [_connection release];
  [_eventService release];
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
  const uint64_t generation = _generation;
  const BOOL isChecked = _isChecked;
  const BOOL startsCheck = !isChecked && _waiters == nil;
  if (!isChecked) {
    if (startsCheck) {
      _waiters = [[NSMutableArray alloc] init];
    }
    AFXConnectionWaiter kept = [waiter copy];
    [_waiters addObject:kept];
    [kept release];
  }
  pthread_mutex_unlock(&_mutex);

  if (isChecked) {
    waiter(connection);
  } else if (startsCheck) {
    id<AFXProvisioningService> service =
        [connection remoteObjectProxyWithErrorHandler:^(NSError *) {
          [self dropConnectionOfGeneration:generation];
        }];
    [service checkConnectionWithCallback:^(BOOL isReady) {
      if (isReady) {
        [self admitWaitersOfGeneration:generation];
      } else {
        [self dropConnectionOfGeneration:generation];
      }
    }];
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, sCheckTimeout),
                   dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), ^{
                     [self dropConnectionOfGeneration:generation evenIfChecked:NO];
                   });
  }
  [connection release];
}

- (void)reportUsageEvent:(NSString *)event eventInfo:(NSDictionary *)eventInfo {
  pthread_mutex_lock(&_mutex);
  if (_eventService == nil && ![self isResting]) {
    _eventService = [[[self openedConnection] remoteObjectProxy] retain];
  }
  id<AFXProvisioningService> service = [_eventService retain];
  pthread_mutex_unlock(&_mutex);

  @try {
    [service reportUsageEvent:event eventInfo:eventInfo];
  } @catch (NSException *) {
    // The connection raises for what cannot be sent, such as an application's own objects in the
    // information. Such an event is dropped.
  }
  [service release];
}

#pragma mark - Connection

/// The connection in use, opened if there is none. Call with the mutex held.
- (NSXPCConnection *)openedConnection {
  if (_connection == nil) {
    const uint64_t generation = ++_generation;
    _isChecked = NO;
    _connection = [[NSXPCConnection alloc] initWithMachServiceName:AFXProvisioningServiceName
                                                           options:0];
    _connection.remoteObjectInterface =
        [NSXPCInterface interfaceWithProtocol:@protocol(AFXProvisioningService)];
    // After an interruption the connection could be used again, but then a message that was sent
    // before the first check would not be told from one sent to the agent's successor.
    _connection.interruptionHandler = ^{
      [self dropConnectionOfGeneration:generation];
    };
    _connection.invalidationHandler = ^{
      [self dropConnectionOfGeneration:generation];
    };
    [_connection resume];
  }
  return _connection;
}

/// Whether there is no connection and it is too early for an event to try again. Call with the
/// mutex held.
- (BOOL)isResting {
  return _connection == nil && _restEnd != 0 && dispatch_time(DISPATCH_TIME_NOW, 0) < _restEnd;
}

/// Hands the connection to everyone who waits for it, now that the agent has answered on it.
- (void)admitWaitersOfGeneration:(uint64_t)generation {
  pthread_mutex_lock(&_mutex);
  if (generation != _generation || _connection == nil) {
    pthread_mutex_unlock(&_mutex);
    return;
  }
  NSXPCConnection *connection = [_connection retain];
  NSArray *waiters = _waiters;
  _waiters = nil;
  _isChecked = YES;
  pthread_mutex_unlock(&_mutex);

  for (AFXConnectionWaiter waiter in waiters) {
    waiter(connection);
  }
  [waiters release];
  [connection release];
}

/// Forgets the connection, so that the next request opens a new one, and hands nil to everyone who
/// waits for it.
- (void)dropConnectionOfGeneration:(uint64_t)generation {
  [self dropConnectionOfGeneration:generation evenIfChecked:YES];
}

- (void)dropConnectionOfGeneration:(uint64_t)generation evenIfChecked:(BOOL)evenIfChecked {
  pthread_mutex_lock(&_mutex);
  if (generation != _generation || _connection == nil || (_isChecked && !evenIfChecked)) {
    pthread_mutex_unlock(&_mutex);
    return;
  }
  NSXPCConnection *connection = _connection;
  id<AFXProvisioningService> eventService = _eventService;
  NSArray *waiters = _waiters;
  _restEnd = _isChecked ? 0 : dispatch_time(DISPATCH_TIME_NOW, sRestAfterFailure);
  _connection = nil;
  _eventService = nil;
  _waiters = nil;
  _isChecked = NO;
  pthread_mutex_unlock(&_mutex);

  for (AFXConnectionWaiter waiter in waiters) {
    waiter(nil);
  }
  [waiters release];
  [eventService release];
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
