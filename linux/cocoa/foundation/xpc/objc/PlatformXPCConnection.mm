#import "PlatformXPCConnection.h"

#import "PlatformXPCInterface.h"
#import "PlatformXPCListenerEndpoint.h"
#import "PlatformXPCProxy.h"

using platform::xpc::ConnectionCore;
using platform::xpc::Descriptor;
using platform::xpc::OwnerLink;

@implementation PlatformXPCConnection

- (instancetype)initWithTarget:(ConnectionCore::Target)target {
  self = [super init];
  if (self) {
    _core = new std::shared_ptr<ConnectionCore>(
        std::make_shared<ConnectionCore>(std::move(target), self, &_references));
  }
  return self;
}

/// A connection needs to know where to.
- (instancetype)init {
  [self release];
  return nil;
}

- (instancetype)initWithMachServiceName:(NSString *)name options:(NSXPCConnectionOptions)options {
  (void)options;
  const char *service = [name UTF8String];
  self = [self
      initWithTarget:{service ? service : "", {}, Descriptor(), ConnectionCore::Target::kService}];
  if (self) {
    _serviceName = [name copy];
  }
  return self;
}

- (instancetype)initWithListenerEndpoint:(NSXPCListenerEndpoint *)endpoint {
  std::function<Descriptor()> connect = [] { return Descriptor(); };
  if ([endpoint isKindOfClass:[PlatformXPCListenerEndpoint class]]) {
    connect = [(PlatformXPCListenerEndpoint *)endpoint connect];
  }
  self = [self
      initWithTarget:{"", std::move(connect), Descriptor(), ConnectionCore::Target::kListener}];
  if (self) {
    _endpoint = [endpoint retain];
  }
  return self;
}

- (instancetype)initWithAcceptedSocket:(Descriptor)socket {
  return [self initWithTarget:{"", {}, std::move(socket), ConnectionCore::Target::kAccepted}];
}

- (id)retain {
  OwnerLink::increment(&_references);
  return self;
}

- (oneway void)release {
  if (OwnerLink::decrement(&_references)) {
    [self dealloc];
  }
}

- (NSUInteger)retainCount {
  return static_cast<NSUInteger>(__atomic_load_n(&_references, __ATOMIC_RELAXED) + 1);
}

- (void)dealloc {
  if (_core) {
    (*_core)->owner().clear();
    (*_core)->invalidate();
  }
  delete _core;
  [_serviceName release];
  [_endpoint release];
  [super dealloc];
}

- (NSString *)serviceName {
  return _serviceName;
}

- (NSXPCListenerEndpoint *)endpoint {
  return _endpoint;
}

- (NSXPCInterface *)exportedInterface {
  return (*_core)->get(ConnectionCore::kExportedInterface);
}

- (void)setExportedInterface:(NSXPCInterface *)interface {
  (*_core)->set(ConnectionCore::kExportedInterface, interface);
}

- (id)exportedObject {
  return (*_core)->get(ConnectionCore::kExportedObject);
}

- (void)setExportedObject:(id)object {
  (*_core)->set(ConnectionCore::kExportedObject, object);
}

- (NSXPCInterface *)remoteObjectInterface {
  return (*_core)->get(ConnectionCore::kRemoteInterface);
}

- (void)setRemoteObjectInterface:(NSXPCInterface *)interface {
  (*_core)->set(ConnectionCore::kRemoteInterface, interface);
}

- (void (^)(void))interruptionHandler {
  return (*_core)->get(ConnectionCore::kInterruption);
}

- (void)setInterruptionHandler:(void (^)(void))handler {
  id copied = [handler copy];
  (*_core)->set(ConnectionCore::kInterruption, copied);
  [copied release];
}

- (void (^)(void))invalidationHandler {
  return (*_core)->get(ConnectionCore::kInvalidation);
}

- (void)setInvalidationHandler:(void (^)(void))handler {
  id copied = [handler copy];
  (*_core)->set(ConnectionCore::kInvalidation, copied);
  [copied release];
}

- (id)remoteObjectProxy {
  return [self proxyWithErrorHandler:nil];
}

- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError *error))handler {
  return [self proxyWithErrorHandler:handler];
}

- (id)proxyWithErrorHandler:(id)handler {
  PlatformXPCInterface *interface = (*_core)->get(ConnectionCore::kRemoteInterface);
  if (!interface) {
    [NSException raise:NSInvalidArgumentException
                format:@"A connection without a remoteObjectInterface has no proxy"];
  }
  return [PlatformXPCProxy proxyForConnection:self
                                         core:_core->get()
                                    interface:interface
                                 errorHandler:handler];
}

- (void)resume {
  (*_core)->resume();
}

- (void)suspend {
  (*_core)->suspend();
}

- (void)invalidate {
  (*_core)->invalidate();
}

- (pid_t)processIdentifier {
  return (*_core)->peer().process;
}

- (uid_t)effectiveUserIdentifier {
  return (*_core)->peer().user;
}

- (gid_t)effectiveGroupIdentifier {
  return (*_core)->peer().group;
}

@end

/// Makes the name NSXPCConnection, which GNUstep's stub holds, stand for this class.
@interface NSXPCConnection (Platform)
+ (id)allocWithZone:(NSZone *)zone;
@end

@implementation NSXPCConnection (Platform)

+ (id)allocWithZone:(NSZone *)zone {
  Class made = self == [NSXPCConnection class] ? [PlatformXPCConnection class] : self;
  return NSAllocateObject(made, 0, zone);
}

@end

@implementation NSXPCConnection (NSXPCConnectionCurrent)

+ (NSXPCConnection *)currentConnection {
  return [[ConnectionCore::current() retain] autorelease];
}

@end
