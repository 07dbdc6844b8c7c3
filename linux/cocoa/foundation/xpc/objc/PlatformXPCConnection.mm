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
  OwnerLink::Increment(&_references);
  return self;
}

- (oneway void)release {
  if (OwnerLink::Decrement(&_references)) {
    [self dealloc];
  }
}

- (NSUInteger)retainCount {
  return static_cast<NSUInteger>(__atomic_load_n(&_references, __ATOMIC_RELAXED) + 1);
}

- (void)dealloc {
  if (_core) {
    (*_core)->owner().Clear();
    (*_core)->Invalidate();
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
  return (*_core)->Get(ConnectionCore::kExportedInterface);
}

- (void)setExportedInterface:(NSXPCInterface *)interface {
  (*_core)->Set(ConnectionCore::kExportedInterface, interface);
}

- (id)exportedObject {
  return (*_core)->Get(ConnectionCore::kExportedObject);
}

- (void)setExportedObject:(id)object {
  (*_core)->Set(ConnectionCore::kExportedObject, object);
}

- (NSXPCInterface *)remoteObjectInterface {
  return (*_core)->Get(ConnectionCore::kRemoteInterface);
}

- (void)setRemoteObjectInterface:(NSXPCInterface *)interface {
  (*_core)->Set(ConnectionCore::kRemoteInterface, interface);
}

- (void (^)(void))interruptionHandler {
  return (*_core)->Get(ConnectionCore::kInterruption);
}

- (void)setInterruptionHandler:(void (^)(void))handler {
  id copied = [handler copy];
  (*_core)->Set(ConnectionCore::kInterruption, copied);
  [copied release];
}

- (void (^)(void))invalidationHandler {
  return (*_core)->Get(ConnectionCore::kInvalidation);
}

- (void)setInvalidationHandler:(void (^)(void))handler {
  id copied = [handler copy];
  (*_core)->Set(ConnectionCore::kInvalidation, copied);
  [copied release];
}

- (id)remoteObjectProxy {
  return [self proxyWithErrorHandler:nil];
}

- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError *error))handler {
  return [self proxyWithErrorHandler:handler];
}

- (id)proxyWithErrorHandler:(id)handler {
  PlatformXPCInterface *interface = (*_core)->Get(ConnectionCore::kRemoteInterface);
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
  (*_core)->Resume();
}

- (void)suspend {
  (*_core)->Suspend();
}

- (void)invalidate {
  (*_core)->Invalidate();
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
  return [[ConnectionCore::Current() retain] autorelease];
}

@end
