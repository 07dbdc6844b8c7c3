#import "client/AFXUsageReporter.h"

#import "client/AFXAgentConnection.h"

static const int64_t sShortestRetryDelay = 20 * NSEC_PER_MSEC;
static const int64_t sLongestRetryDelay = 250 * NSEC_PER_MSEC;

/// Back-pressure: the system buffers what the agent has not read, without a limit.
static const uint64_t sMostOutstanding = 4096;
/// How many events there are for each check, whose reply acknowledges those before.
static const uint64_t sEventsPerCheck = 256;

@implementation AFXUsageReporter

- (instancetype)initReporter {
  self = [super init];
  if (self) {
    pthread_mutex_init(&_mutex, NULL);
  }
  return self;
}

- (void)dealloc {
  [_connection invalidate];
  [_connection release];
  [_service release];
  pthread_mutex_destroy(&_mutex);
  [super dealloc];
}

- (void)reportUsageEvent:(NSString *)event eventInfo:(NSDictionary *)eventInfo {
  pthread_mutex_lock(&_mutex);
  if (![self isReadyForEvent]) {
    pthread_mutex_unlock(&_mutex);
    return;
  }
  id<AFXProvisioningService> service = [_service retain];
  // The first of a connection is one of them: its reply says that there is an agent.
  NSXPCConnection *checked = _sent % sEventsPerCheck == 0 ? [_connection retain] : nil;
  const uint64_t count = ++_sent;
  const uint64_t generation = _generation;
  pthread_mutex_unlock(&_mutex);

  @try {
    [service reportUsageEvent:event eventInfo:eventInfo];
  } @catch (NSException *) {
    // The connection raises for what cannot be sent, such as an application's own objects.
  }
  [service release];
  if (checked) {
    id<AFXProvisioningService> checker = [checked remoteObjectProxyWithErrorHandler:^(NSError *) {
      [self dropConnectionOfGeneration:generation];
    }];
    [checker checkConnectionWithCallback:^(BOOL) {
      [self noteTaken:count ofGeneration:generation];
    }];
    [checked release];
  }
}

/// Whether an event can be sent now; opens a connection if it is time for one. Call with the mutex
/// held.
- (BOOL)isReadyForEvent {
  if (_connection) {
    return _sent - _taken < sMostOutstanding;
  }
  if (_retryTime && dispatch_time(DISPATCH_TIME_NOW, 0) < _retryTime) {
    return NO;
  }
  const uint64_t generation = ++_generation;
  _sent = 0;
  _taken = 0;
  _connection = __AFXOpenConnection(^{
    [self dropConnectionOfGeneration:generation];
  });
  _service = [[_connection remoteObjectProxy] retain];
  return YES;
}

- (void)noteTaken:(uint64_t)count ofGeneration:(uint64_t)generation {
  pthread_mutex_lock(&_mutex);
  if (generation == _generation) {
    _taken = MAX(_taken, count);
    _retryDelay = 0;
  }
  pthread_mutex_unlock(&_mutex);
}

/// Forgets the connection, so that a later event opens a new one: the next one, or where the agent
/// has taken nothing over this one, the first after a delay.
- (void)dropConnectionOfGeneration:(uint64_t)generation {
  pthread_mutex_lock(&_mutex);
  if (generation != _generation || _connection == nil) {
    pthread_mutex_unlock(&_mutex);
    return;
  }
  NSXPCConnection *connection = _connection;
  id<AFXProvisioningService> service = _service;
  _connection = nil;
  _service = nil;
  if (_taken == 0) {
    _retryDelay = MIN(MAX(2 * _retryDelay, sShortestRetryDelay), sLongestRetryDelay);
    _retryTime = dispatch_time(DISPATCH_TIME_NOW, _retryDelay);
  }
  pthread_mutex_unlock(&_mutex);
  [service release];
  [connection invalidate];
  [connection release];
}

@end

AFXUsageReporter *__AFXSharedUsageReporter(void) {
  static AFXUsageReporter *sReporter;
  static dispatch_once_t sOnce;
  dispatch_once(&sOnce, ^{
    sReporter = [[AFXUsageReporter alloc] initReporter];
  });
  return sReporter;
}
