#import "PlatformXPCInterface.h"

#include <map>
#include <tuple>

#include "wire/object_coding.h"

using platform::xpc::CodableClasses;
using platform::xpc::ProtocolMethods;

struct PlatformXPCInterfaceClasses {
  std::map<std::tuple<std::string, NSUInteger, bool>, NSSet *> sets;
  ~PlatformXPCInterfaceClasses() {
    for (auto &entry : sets) {
      [entry.second release];
    }
  }
};

@implementation PlatformXPCInterface

@synthesize methods = _methods;

- (instancetype)initWithProtocol:(Protocol *)protocol {
  self = [super init];
  if (self) {
    @try {
      [self setProtocol:protocol];
    } @catch (id) {
      [self release];
      @throw;
    }
  }
  return self;
}

- (void)dealloc {
  delete _classes;
  [super dealloc];
}

- (Protocol *)protocol {
  return _protocol;
}

- (void)setProtocol:(Protocol *)protocol {
  _methods = ProtocolMethods::Of(protocol);
  _protocol = protocol;
}

- (void)checkSelector:(SEL)sel ofReply:(BOOL)ofReply {
  const platform::xpc::Method *method = _methods->Find(sel);
  if (!method || (ofReply && method->reply < 0)) {
    [NSException raise:NSInvalidArgumentException
                format:@"The protocol %s has no %s%s", protocol_getName(_protocol),
                       sel_getName(sel), ofReply ? " with a reply" : ""];
  }
}

- (void)setClasses:(NSSet *)classes
       forSelector:(SEL)sel
     argumentIndex:(NSUInteger)arg
           ofReply:(BOOL)ofReply {
  [self checkSelector:sel ofReply:ofReply];
  if (!_classes) {
    _classes = new PlatformXPCInterfaceClasses;
  }
  NSSet *&place = _classes->sets[{sel_getName(sel), arg, ofReply}];
  [place autorelease];
  place = [classes copy];
}

- (NSSet *)classesForSelector:(SEL)sel argumentIndex:(NSUInteger)arg ofReply:(BOOL)ofReply {
  [self checkSelector:sel ofReply:ofReply];
  NSSet *classes = [self classesForMethod:_methods->Find(sel) argument:arg ofReply:ofReply];
  return classes ? classes : CodableClasses();
}

- (NSSet *)classesForMethod:(const platform::xpc::Method *)method
                   argument:(NSUInteger)index
                    ofReply:(BOOL)ofReply {
  if (!_classes) {
    return nil;
  }
  auto found = _classes->sets.find({method->name, index, ofReply});
  return found == _classes->sets.end() ? nil : found->second;
}

@end

/// Makes the name NSXPCInterface, which GNUstep's stub holds, stand for this class.
@interface NSXPCInterface (Platform)
+ (id)allocWithZone:(NSZone *)zone;
@end

@implementation NSXPCInterface (Platform)

+ (id)allocWithZone:(NSZone *)zone {
  Class made = self == [NSXPCInterface class] ? [PlatformXPCInterface class] : self;
  return NSAllocateObject(made, 0, zone);
}

@end

@implementation NSXPCInterface (NSXPCInterfaceCreation)

+ (NSXPCInterface *)interfaceWithProtocol:(Protocol *)protocol {
  return [[[PlatformXPCInterface alloc] initWithProtocol:protocol] autorelease];
}

@end
