#import "PlatformXPCInterface.h"

#import <Foundation/PlatformReplyTypes.h>

#import "PlatformXPCProxy.h"
#import "wire/object_coding.h"

using platform::xpc::CodableClasses;
using platform::xpc::ProtocolMethods;

static NSString *KeyOf(const char *selector, NSUInteger index, BOOL ofReply) {
  return [NSString stringWithFormat:@"%s %lu %d", selector, index, ofReply];
}

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
  [_classes release];
  [super dealloc];
}

- (Protocol *)protocol {
  return _protocol;
}

- (void)setProtocol:(Protocol *)protocol {
  _methods = ProtocolMethods::of(protocol);
  _protocol = protocol;
}

- (void)checkSelector:(SEL)sel ofReply:(BOOL)ofReply {
  const platform::xpc::Method *method = _methods->find(sel);
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
    _classes = [[NSMutableDictionary alloc] init];
  }
  [_classes setObject:[[classes copy] autorelease] forKey:KeyOf(sel_getName(sel), arg, ofReply)];
}

- (NSSet *)classesForSelector:(SEL)sel argumentIndex:(NSUInteger)arg ofReply:(BOOL)ofReply {
  [self checkSelector:sel ofReply:ofReply];
  NSSet *classes = [self classesForMethod:_methods->find(sel) argument:arg ofReply:ofReply];
  return classes ? classes : CodableClasses();
}

- (NSSet *)classesForMethod:(const platform::xpc::Method *)method
                   argument:(NSUInteger)index
                    ofReply:(BOOL)ofReply {
  return _classes ? [_classes objectForKey:KeyOf(method->name.c_str(), index, ofReply)] : nil;
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

@implementation NSXPCInterface (PlatformReplyTypes)

- (id)replyTypesRecorder {
  return [PlatformXPCProxy proxyForConnection:nil
                                         core:nullptr
                                    interface:(PlatformXPCInterface *)self
                                 errorHandler:nil];
}

@end
