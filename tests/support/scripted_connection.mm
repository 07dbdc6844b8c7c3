#include "scripted_connection.h"

static NSMutableArray *sConnections;
static std::vector<std::string> sConnectionCalls;

/// The proxy that a scripted connection hands out.
@interface ScriptedProxy : NSObject {
 @public
  ScriptedConnection *_connection;
}
@end

@implementation ScriptedProxy

- (void)dealloc {
  [_connection release];
  [super dealloc];
}

- (void)checkConnectionWithCallback:(void (^)(BOOL))callback {
  sConnectionCalls.push_back("check " + std::to_string(_connection->_number));
  [_connection->_checks addObject:[[callback copy] autorelease]];
}

- (void)reportUsageEvent:(NSString *)event eventInfo:(NSDictionary *)eventInfo {
  sConnectionCalls.push_back("event " + std::string(event.UTF8String) + " on " +
                             std::to_string(_connection->_number));
  if (_connection->_onEvent) {
    _connection->_onEvent();
  }
}

- (void)fetchAskingPermissionStatus:(void (^)(BOOL, NSString *))callback {
  sConnectionCalls.push_back("fetch on " + std::to_string(_connection->_number));
}

@end

@implementation ScriptedConnection

@synthesize remoteObjectInterface = _remoteObjectInterface;
@synthesize interruptionHandler = _interruptionHandler;
@synthesize invalidationHandler = _invalidationHandler;

- (instancetype)initWithNumber:(NSUInteger)number {
  self = [super init];
  _number = number;
  _checks = [[NSMutableArray alloc] init];
  _errorHandlers = [[NSMutableArray alloc] init];
  return self;
}

- (void)dealloc {
  sConnectionCalls.push_back("free " + std::to_string(_number));
  [_remoteObjectInterface release];
  [_interruptionHandler release];
  [_invalidationHandler release];
  [_checks release];
  [_errorHandlers release];
  [_onEvent release];
  [super dealloc];
}

- (void)resume {
  // Whatever comes in may come from now on.
  sConnectionCalls.push_back(
      "resume " + std::to_string(_number) +
      (_remoteObjectInterface && _interruptionHandler && _invalidationHandler ? "" : " unready"));
}

- (void)invalidate {
  sConnectionCalls.push_back("invalidate " + std::to_string(_number));
}

- (id)remoteObjectProxy {
  ScriptedProxy *proxy = [[[ScriptedProxy alloc] init] autorelease];
  proxy->_connection = [self retain];
  return proxy;
}

- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError *))handler {
  [_errorHandlers addObject:[[handler copy] autorelease]];
  return [self remoteObjectProxy];
}

- (void)replyToCheck:(BOOL)isReady {
  void (^callback)(BOOL) = [[[_checks objectAtIndex:0] retain] autorelease];
  [_checks removeObjectAtIndex:0];
  callback(isReady);
}

- (void)fail {
  NSArray *handlers = [[_errorHandlers copy] autorelease];
  [_errorHandlers removeAllObjects];
  for (void (^handler)(NSError *) in handlers) {
    handler([NSError errorWithDomain:NSCocoaErrorDomain
                                code:NSXPCConnectionInterrupted
                            userInfo:nil]);
  }
}

@end

static id MakeConnection(id connection, SEL, NSString *name, NSXPCConnectionOptions options) {
  [connection release];
  ScriptedConnection *made = [[ScriptedConnection alloc] initWithNumber:sConnections.count + 1];
  [sConnections addObject:made];
  sConnectionCalls.push_back("connect " + std::to_string(made->_number) + " to " +
                             std::string(name.UTF8String) + (options ? " with options" : ""));
  return made;
}

/// The class that has the method, which may be one below the one that is named.
static Method InitMethod() {
  NSXPCConnection *connection = [NSXPCConnection alloc];
  Method method = class_getInstanceMethod(object_getClass(connection),
                                          @selector(initWithMachServiceName:options:));
  [connection release];
  return method;
}

ScriptedConnections::ScriptedConnections() : swap_(InitMethod(), MakeConnection) {
  sConnections = [[NSMutableArray alloc] init];
  sConnectionCalls.clear();
}

ScriptedConnections::~ScriptedConnections() {
  [sConnections release];
  sConnections = nil;
}

NSArray<ScriptedConnection *> *ScriptedConnections::made() { return sConnections; }

void ScriptedConnections::forget() { [sConnections removeAllObjects]; }

std::vector<std::string> ScriptedConnections::taken() {
  std::vector<std::string> calls;
  calls.swap(sConnectionCalls);
  return calls;
}
