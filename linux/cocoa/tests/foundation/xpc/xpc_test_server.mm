#import "xpc_test_server.h"

#import <Foundation/PlatformReplyTypes.h>

#include <unistd.h>

#include <cstring>

@implementation XPCTestServer

@synthesize refuses = _refuses;

+ (void)initialize {
  const PlatformAnyArgument any;
  id<XPCTestService> service =
      [[NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)] replyTypesRecorder];
  [service echo:any reply:any];
  [service eventsWithReply:any];
  [service character:any
                flag:any
               truth:any
               small:any
            unsigned:any
                wide:any
            positive:any
              single:any
             twofold:any
               reply:any];
  [service addresses:any reply:any];
  [service textOfLength:any reply:any];
  [service failWithReply:any];
  [service hangWithReply:any];
  [service dropWithReply:any];
  [service twiceWithReply:any];
  [service after:any reply:any];
  [service dieWithReply:any];
  [service answerAndDieWithReply:any];
  [service raiseWithReply:any];
  [service strangeWithReply:any];
  [service isFromProcess:any reply:any];
  [service callBack:any reply:any];
}

- (instancetype)init {
  self = [super init];
  if (self) {
    _events = [[NSMutableArray alloc] init];
    _kept = [[NSMutableArray alloc] init];
  }
  return self;
}

- (void)dealloc {
  [_events release];
  [_kept release];
  [super dealloc];
}

- (NSArray *)events {
  @synchronized(_events) {
    return [[_events copy] autorelease];
  }
}

- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection {
  (void)listener;
  if ([self refuses]) {
    return NO;
  }
  connection.exportedInterface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  connection.exportedObject = self;
  connection.remoteObjectInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  [connection resume];
  return YES;
}

- (void)reportEvent:(NSString *)name info:(NSDictionary *)info {
  (void)info;
  @synchronized(_events) {
    [_events addObject:name ? name : @""];
  }
}

- (void)echo:(id)object reply:(void (^)(id))reply {
  reply(object);
}

- (void)eventsWithReply:(void (^)(NSArray *))reply {
  reply([self events]);
}

- (void)character:(char)character
             flag:(BOOL)flag
            truth:(bool)truth
            small:(short)small
         unsigned:(unsigned)number
             wide:(int64_t)wide
         positive:(uint64_t)positive
           single:(float)single
          twofold:(double)twofold
            reply:(void (^)(char, BOOL, bool, short, unsigned, int64_t, uint64_t, float,
                            double))reply {
  reply(character, flag, truth, small, number, wide, positive, single, twofold);
}

- (void)addresses:(NSString *)text reply:(void (^)(BOOL, NSString *, NSError *))reply {
  reply(YES, text, nil);
}

- (void)textOfLength:(NSUInteger)length reply:(void (^)(NSString *))reply {
  NSMutableData *letters = [NSMutableData dataWithLength:length];
  std::memset([letters mutableBytes], 'x', length);
  reply([[[NSString alloc] initWithData:letters encoding:NSASCIIStringEncoding] autorelease]);
}

- (void)failWithReply:(void (^)(NSError *))reply {
  NSDictionary *info = [NSDictionary
      dictionaryWithObjectsAndKeys:@"no such thing", NSLocalizedDescriptionKey,
                                   [NSNumber numberWithBool:YES], @"omit presentation",
                                   [NSDictionary
                                       dictionaryWithObject:[NSURL
                                                                URLWithString:@"http://a.example/"]
                                                     forKey:[NSNumber numberWithInt:1]],
                                   @"urls", self, @"cannot be sent", nil];
  reply([NSError errorWithDomain:@"TestDomain" code:-7 userInfo:info]);
}

- (void)hangWithReply:(void (^)(BOOL))reply {
  @synchronized(_kept) {
    id copy = [reply copy];
    [_kept addObject:copy];
    [copy release];
  }
}

- (void)dropWithReply:(void (^)(BOOL))reply {
  (void)reply;
}

- (void)twiceWithReply:(void (^)(BOOL))reply {
  reply(YES);
  reply(NO);
}

- (void)after:(NSUInteger)milliseconds reply:(void (^)(BOOL))reply {
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(milliseconds) * 1000000),
                 dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
                   reply(YES);
                 });
}

- (void)dieWithReply:(void (^)(BOOL))reply {
  (void)reply;
  _exit(0);
}

- (void)answerAndDieWithReply:(void (^)(BOOL))reply {
  reply(YES);
  _exit(0);
}

- (void)raiseWithReply:(void (^)(BOOL))reply {
  (void)reply;
  [NSException raise:@"TestException" format:@"on purpose"];
}

- (void)strangeWithReply:(void (^)(id))reply {
  reply(self);
}

- (void)isFromProcess:(int)process reply:(void (^)(BOOL))reply {
  NSXPCConnection *current = [NSXPCConnection currentConnection];
  reply(current && [current processIdentifier] == process &&
        [current effectiveUserIdentifier] == geteuid());
}

- (void)callBack:(NSString *)text reply:(void (^)(NSString *))reply {
  id<XPCTestService> caller =
      [[NSXPCConnection currentConnection] remoteObjectProxyWithErrorHandler:^(NSError *error) {
        (void)error;
        reply(nil);
      }];
  [caller echo:text
         reply:^(id answer) {
           reply(answer);
         }];
}

@end
