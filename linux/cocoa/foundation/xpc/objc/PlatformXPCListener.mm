// The objects behind NSXPCListener.

#import <Foundation/Foundation.h>

#import "PlatformXPCListenerEndpoint.h"
#import "listener_core.h"

using platform::xpc::Descriptor;
using platform::xpc::ListenerCore;
using platform::xpc::OwnerLink;

@interface PlatformXPCListener : NSXPCListener {
  std::shared_ptr<ListenerCore> *_core;
  long _references;
}

/// @param service  As `ListenerCore`'s.
- (instancetype)initWithService:(const char *)service;

@end

@implementation PlatformXPCListener

- (instancetype)initWithService:(const char *)service {
  self = [super init];
  if (self) {
    _core = new std::shared_ptr<ListenerCore>(
        std::make_shared<ListenerCore>(service, self, &_references));
  }
  return self;
}

/// A listener needs a name, or to be anonymous.
- (instancetype)init {
  [self release];
  return nil;
}

- (instancetype)initWithMachServiceName:(NSString *)name {
  // An empty name would make an anonymous listener.
  return [self initWithService:[name length] ? [name UTF8String] : "."];
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
  [super dealloc];
}

- (id<NSXPCListenerDelegate>)delegate {
  return (*_core)->delegate();
}

- (void)setDelegate:(id<NSXPCListenerDelegate>)delegate {
  (*_core)->setDelegate(delegate);
}

- (NSXPCListenerEndpoint *)endpoint {
  const auto connect = [core = std::weak_ptr<ListenerCore>(*_core)] {
    const auto listener = core.lock();
    return listener ? listener->connectHere() : Descriptor();
  };
  return [[[PlatformXPCListenerEndpoint alloc] initWithConnect:connect] autorelease];
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

@end

/// Makes the name NSXPCListener, which GNUstep's stub holds, stand for this class.
@interface NSXPCListener (Platform)
+ (id)allocWithZone:(NSZone *)zone;
@end

@implementation NSXPCListener (Platform)

+ (id)allocWithZone:(NSZone *)zone {
  Class made = self == [NSXPCListener class] ? [PlatformXPCListener class] : self;
  return NSAllocateObject(made, 0, zone);
}

@end

@implementation NSXPCListener (NSXPCListenerCreation)

+ (NSXPCListener *)anonymousListener {
  return [[[PlatformXPCListener alloc] initWithService:""] autorelease];
}

@end
