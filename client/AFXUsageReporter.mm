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
  if (_connection == nil) {
    [self openConnectionUnlessTooEarly];
  }
  if (_connection == nil || _sent - _taken >= sMostOutstanding) {
    pthread_mutex_unlock(&_mutex);
    return;
  }
  id<AFXProvisioningService> service = [_service retain];
  // The first event of a connection is one of them: the reply says that there is an agent.
  const BOOL isChecked = _sent++ % sEventsPerCheck == 0;
  pthread_mutex_unlock(&_mutex);

  @try {
    [service reportUsageEvent:event eventInfo:eventInfo];
  } @catch (NSException *) {
    // The connection raises for what cannot be sent, such as an application's own objects.
  }
  [service release];
  if (isChecked) {
    [self checkConnection];
  }
}

/// Has the agent acknowledge what has been sent so far.
- (void)checkConnection {
  pthread_mutex_lock(&_mutex);
  NSXPCConnection *connection = [_connection retain];
  const uint64_t count = _sent;
  const uint64_t generation = _generation;
  pthread_mutex_unlock(&_mutex);

  id<AFXProvisioningService> service = [connection remoteObjectProxyWithErrorHandler:^(NSError *) {
    [self dropConnectionOfGeneration:generation];
  }];
  [service checkConnectionWithCallback:^(BOOL) {
    [self noteTaken:count ofGeneration:generation];
  }];
  [connection release];
}

/// Opens a connection, but not before the retry delay is over. Call with the mutex held.
- (void)openConnectionUnlessTooEarly {
  if (_retryTime && dispatch_time(DISPATCH_TIME_NOW, 0) < _retryTime) {
    return;
  }
  const uint64_t generation = ++_generation;
  _sent = 0;
  _taken = 0;
  _connection = __AFXOpenConnection(^{
    [self dropConnectionOfGeneration:generation];
  });
  _service = [[_connection remoteObjectProxy] retain];
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
