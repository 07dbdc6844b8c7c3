// Connections inside one process, over real sockets.

#import <Foundation/PlatformReplyTypes.h>

#include <gtest/gtest.h>
#include <objc/runtime.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <thread>

#include "xpc_test_client.h"
#import "xpc_test_server.h"

using namespace xpc_test;

/// Expects that `statement` raises NSInvalidArgumentException.
#define EXPECT_INVALID_ARGUMENT(statement)                                  \
  do {                                                                      \
    NSString *raised = nil;                                                 \
    @try {                                                                  \
      (void)(statement);                                                    \
    } @catch (NSException * exception) {                                    \
      raised = [exception name];                                            \
    }                                                                       \
    EXPECT_TRUE([raised isEqual:NSInvalidArgumentException]) << #statement; \
  } while (0)

namespace {

NSString *const kService = @"com.example.test";

class XPC : public ::testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    server_ = [[XPCTestServer alloc] init];
    listener_ = [[NSXPCListener alloc] initWithMachServiceName:kService];
    listener_.delegate = server_;
    [listener_ resume];
  }

  void TearDown() override {
    [listener_ invalidate];
    [listener_ release];
    [server_ release];
    [pool_ release];
  }

  ServiceDirectory directory_;
  XPCTestServer *server_;
  NSXPCListener *listener_;
  NSAutoreleasePool *pool_;
};

}  // namespace

/// Says when it goes.
@interface XPCTestWitness : NSObject {
  Counter *_gone;
}
- (instancetype)initWithCounter:(Counter *)gone;
@end

@implementation XPCTestWitness
- (instancetype)initWithCounter:(Counter *)gone {
  self = [super init];
  if (self) {
    _gone = gone;
  }
  return self;
}
- (void)dealloc {
  _gone->add();
  [super dealloc];
}
@end

TEST_F(XPC, ObjectsComeBackAsTheyWere) {
  Client client(kService);
  unichar units[] = {'a', 0xfeff, 0, 0xe4, 0x20ac, 0xd83d, 0xde00, 0xfffe, 0xffff};
  NSArray *objects = [NSArray
      arrayWithObjects:@"", @"plain", @"grüße — 😀",
                       [NSString stringWithCharacters:units length:sizeof units / sizeof *units],
                       [@"" stringByPaddingToLength:100000 withString:@"ä" startingAtIndex:0],
                       [NSNumber numberWithInt:-5],
                       [NSNumber numberWithUnsignedLongLong:UINT64_MAX],
                       [NSNumber numberWithLongLong:INT64_MIN], [NSNumber numberWithDouble:0.1],
                       [NSNumber numberWithFloat:0.5f], [NSArray array],
                       [NSArray arrayWithObject:[NSArray arrayWithObject:@"deep"]],
                       [NSDictionary dictionary],
                       [NSDictionary dictionaryWithObjectsAndKeys:@"v", @"k", @"w",
                                                                  [NSNumber numberWithInt:1], nil],
                       [NSData data], [NSData dataWithBytes:"\0\xff" length:2], [NSNull null],
                       [NSDate dateWithTimeIntervalSinceReferenceDate:123456.789],
                       [NSURL URLWithString:@"https://a.example/b?c=d#e"], nil];
  for (id object in objects) {
    id answer = client.echo(object);
    EXPECT_TRUE([answer isEqual:object])
        << [[object description] UTF8String] << " became " << [[answer description] UTF8String];
  }
  EXPECT_TRUE([client.echo(objects) isEqual:objects]);
  EXPECT_EQ(client.echo(nil), nil);
}

TEST_F(XPC, BooleansStayBooleans) {
  Client client(kService);
  Class boolean = [[NSNumber numberWithBool:YES] class];
  EXPECT_EQ([client.echo([NSNumber numberWithBool:YES]) class], boolean);
  EXPECT_EQ([client.echo([NSNumber numberWithBool:NO]) class], boolean);
  EXPECT_NE([client.echo([NSNumber numberWithInt:1]) class], boolean);
}

/// `text` without its first unit: GNUstep makes no string of such units.
static NSString *WithoutItsFirst(NSString *text) {
  NSMutableString *rest = [NSMutableString stringWithString:text];
  [rest deleteCharactersInRange:NSMakeRange(0, 1)];
  return rest;
}

TEST_F(XPC, HalfASurrogatePairBecomesTheReplacementCharacter) {
  Client client(kService);
  NSString *half = WithoutItsFirst(@"😀");
  ASSERT_EQ([half length], 1u);
  EXPECT_TRUE([client.echo(half) isEqual:@"\uFFFD"]);
}

TEST_F(XPC, ErrorsKeepWhatCanBeSent) {
  Client client(kService);
  Outcome stored;
  Outcome &outcome = stored;
  __block NSError *error = nil;
  [client.proxy(&outcome) failWithReply:^(NSError *given) {
    error = [given retain];
    outcome.reply(YES);
  }];
  ASSERT_TRUE(outcome.ended.wait());
  ASSERT_EQ(outcome.replies, 1u);
  client.passQueue();
  EXPECT_TRUE([[error domain] isEqual:@"TestDomain"]);
  EXPECT_EQ([error code], -7);
  EXPECT_TRUE([[error localizedDescription] isEqual:@"no such thing"]);
  NSDictionary *info = [error userInfo];
  EXPECT_EQ([info count], 3u);
  EXPECT_TRUE([[info objectForKey:@"omit presentation"] boolValue]);
  EXPECT_TRUE([[[[info objectForKey:@"urls"] objectForKey:[NSNumber numberWithInt:1]]
      absoluteString] isEqual:@"http://a.example/"]);
  [error release];
}

TEST_F(XPC, ScalarsTravelByTheirTypes) {
  Client client(kService);
  Outcome stored;
  Outcome &outcome = stored;
  [client.proxy(&outcome)
      character:-5
           flag:YES
          truth:true
          small:-30000
       unsigned:4000000000u
           wide:INT64_MIN
       positive:UINT64_MAX
         single:0.25f
        twofold:-1e300
          reply:^(char character, BOOL flag, bool truth, short small, unsigned number, int64_t wide,
                  uint64_t positive, float single, double twofold) {
            outcome.reply(character == -5 && flag == YES && truth && small == -30000 &&
                          number == 4000000000u && wide == INT64_MIN && positive == UINT64_MAX &&
                          single == 0.25f && twofold == -1e300);
          }];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.errors, 0u);
  EXPECT_TRUE(outcome.flag);
}

TEST_F(XPC, SeveralValuesReachTheReplyBlock) {
  Client client(kService);
  Outcome stored;
  Outcome &outcome = stored;
  [client.proxy(&outcome) addresses:@"a@b.example"
                              reply:^(BOOL flag, NSString *text, NSError *error) {
                                outcome.reply(flag && [text isEqual:@"a@b.example"] && !error);
                              }];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_TRUE(outcome.flag);
}

TEST_F(XPC, ClassesAreTheOnesOfTheDocumentation) {
  NSXPCConnection *connection = [[[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                          options:0] autorelease];
  NSXPCInterface *interface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  EXPECT_TRUE([connection isKindOfClass:[NSXPCConnection class]]);
  EXPECT_TRUE([listener_ isKindOfClass:[NSXPCListener class]]);
  EXPECT_TRUE([interface isKindOfClass:[NSXPCInterface class]]);
  EXPECT_TRUE([listener_.endpoint isKindOfClass:[NSXPCListenerEndpoint class]]);
  EXPECT_EQ(interface.protocol, @protocol(XPCTestService));
  EXPECT_TRUE([connection.serviceName isEqual:kService]);
  EXPECT_EQ(connection.remoteObjectInterface, nil);
  connection.remoteObjectInterface = interface;
  connection.exportedInterface = interface;
  connection.exportedObject = server_;
  EXPECT_EQ(connection.remoteObjectInterface, interface);
  EXPECT_EQ(connection.exportedInterface, interface);
  EXPECT_EQ(connection.exportedObject, server_);
  id proxy = [connection remoteObjectProxy];
  EXPECT_TRUE([proxy respondsToSelector:@selector(echo:reply:)]);
  EXPECT_TRUE([proxy respondsToSelector:@selector(reportEvent:info:)]) << "of an adopted protocol";
  EXPECT_FALSE([proxy respondsToSelector:@selector(unheardOfWithReply:)]);
  EXPECT_TRUE([proxy conformsToProtocol:@protocol(XPCTestService)]);
  EXPECT_EQ([[[NSXPCConnection alloc] init] autorelease], nil);
}

TEST_F(XPC, StubsOfTheBaseLibraryHaveNoRoomThatOursWouldShare) {
  for (Class stub in @[
         [NSXPCConnection class], [NSXPCListener class], [NSXPCInterface class],
         [NSXPCListenerEndpoint class]
       ]) {
    EXPECT_EQ(class_getInstanceSize(stub), sizeof(id)) << class_getName(stub);
  }
}

@protocol XPCTestUnsendable
- (int)answer;
@end

@protocol XPCTestTwoBlocks
- (void)one:(void (^)(void))one two:(void (^)(void))two;
@end

TEST_F(XPC, ProtocolsThatCannotBeSentAreRefusedAtOnce) {
  EXPECT_INVALID_ARGUMENT([NSXPCInterface interfaceWithProtocol:@protocol(XPCTestUnsendable)]);
  EXPECT_INVALID_ARGUMENT([NSXPCInterface interfaceWithProtocol:@protocol(XPCTestTwoBlocks)]);
}

/// `object` inside `depth` arrays.
static id Nested(unsigned depth, id object) {
  for (; depth; --depth) {
    object = [NSArray arrayWithObject:object];
  }
  return object;
}

TEST_F(XPC, AnArgumentThatCannotBeEncodedRaisesAndSendsNothing) {
  Client client(kService);
  Outcome outcome;
  EXPECT_INVALID_ARGUMENT([client.proxy(&outcome) echo:server_ reply:outcome.onObject()]);
  EXPECT_INVALID_ARGUMENT([client.proxy(&outcome) echo:[NSArray arrayWithObject:server_]
                                                 reply:outcome.onObject()]);
  NSMutableArray *endless = [NSMutableArray array];
  id element = endless;
  [endless addObject:element];
  EXPECT_INVALID_ARGUMENT([client.proxy(&outcome) echo:endless reply:outcome.onObject()]);
  [endless removeAllObjects];
  for (double moment : {INFINITY, -INFINITY}) {
    NSDate *never = [NSDate dateWithTimeIntervalSinceReferenceDate:moment];
    EXPECT_INVALID_ARGUMENT([client.proxy(&outcome) echo:never reply:outcome.onObject()]);
  }
  EXPECT_INVALID_ARGUMENT([client.proxy(&outcome) echo:Nested(65, @"deep")
                                                 reply:outcome.onObject()]);
  EXPECT_INVALID_ARGUMENT([client.proxy(&outcome) echo:Nested(64, [NSError errorWithDomain:@"d"
                                                                                      code:1
                                                                                  userInfo:nil])
                                                 reply:outcome.onObject()]);
  EXPECT_TRUE([client.echo(@"still there") isEqual:@"still there"]);
  EXPECT_EQ(outcome.ended.count(), 0u);
}

TEST_F(XPC, WhatIsNestedAsDeeplyAsCanBeArrives) {
  Client client(kService);
  id deepest = Nested(64, @"deep");
  EXPECT_TRUE([client.echo(deepest) isEqual:deepest]);
  // Of a chain of errors, the last ones are left out.
  NSError *error = nil;
  for (int i = 0; i < 100; ++i) {
    error = [NSError
        errorWithDomain:@"d"
                   code:i
               userInfo:[NSDictionary dictionaryWithObjectsAndKeys:@"text",
                                                                   NSLocalizedDescriptionKey, error,
                                                                   NSUnderlyingErrorKey, nil]];
  }
  unsigned length = 0;
  for (NSError *each = client.echo(error); each;
       each = [[each userInfo] objectForKey:NSUnderlyingErrorKey]) {
    EXPECT_EQ([each code], 99 - static_cast<int>(length++));
  }
  EXPECT_EQ(length, 32u);
  EXPECT_EQ(client.interrupted.count(), 0u);
}

TEST_F(XPC, AMessageOfTooManyValuesFails) {
  Client client(kService);
  Outcome outcome;
  const unsigned most = 1 << 20;
  NSMutableArray *many = [NSMutableArray array];
  for (unsigned i = 0; i < most; ++i) {
    [many addObject:[NSNull null]];
  }
  [client.proxy(&outcome) echo:many reply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
  // The array and the reply block are values, too.
  [many removeLastObject];
  [many removeLastObject];
  [client.proxy(&outcome) echo:many reply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait(2));
  EXPECT_EQ(outcome.replies, 1u);
}

TEST_F(XPC, KeysThatDifferByALeadingByteOrderMarkArriveAsTwo) {
  Client client(kService);
  NSString *marked = WithoutItsFirst(@".\uFEFFkey");
  ASSERT_EQ([marked length], 4u);
  id both = [NSDictionary dictionaryWithObjectsAndKeys:@"1", @"key", @"2", marked, nil];
  ASSERT_EQ([both count], 2u);
  EXPECT_TRUE([client.echo(both) isEqual:both]);
}

TEST_F(XPC, KeysThatBecomeOneDoNotEndTheConnection) {
  Client client(kService);
  id both = [NSDictionary
      dictionaryWithObjectsAndKeys:@"1", WithoutItsFirst(@"😀"), @"2", WithoutItsFirst(@"😁"), nil];
  ASSERT_EQ([both count], 2u);
  EXPECT_EQ([client.echo(both) count], 1u);
}

TEST_F(XPC, ARelativeURLArrivesAsAnAbsoluteOne) {
  Client client(kService);
  NSURL *base = [NSURL URLWithString:@"https://a.example/b/c"];
  NSURL *answer = client.echo([NSURL URLWithString:@"d" relativeToURL:base]);
  EXPECT_TRUE([[answer absoluteString] isEqual:@"https://a.example/b/d"]);
  EXPECT_EQ([answer baseURL], nil);
}

TEST_F(XPC, MessagesOfOneThreadArriveInOrder) {
  Client client(kService);
  constexpr unsigned kCount = 5000;
  for (unsigned i = 0; i < kCount; ++i) {
    [client.proxy() reportEvent:[NSString stringWithFormat:@"%u", i] info:nil];
    if (i % 500 == 0) {
      client.echo(nil);
    }
  }
  client.echo(nil);
  NSArray *events = [server_ events];
  ASSERT_EQ([events count], kCount);
  for (unsigned i = 0; i < kCount; ++i) {
    ASSERT_EQ([[events objectAtIndex:i] intValue], static_cast<int>(i));
  }
}

TEST_F(XPC, MessagesJustBeforeTheLastReleaseArrive) {
  constexpr unsigned kCount = 3000;
  {
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    Client client(kService);
    for (unsigned i = 0; i < kCount; ++i) {
      [client.proxy() reportEvent:@"e" info:nil];
    }
    [pool release];
  }
  auto end = Clock::now() + kPatience;
  while ([[server_ events] count] < kCount && Clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ([[server_ events] count], kCount);
}

TEST_F(XPC, ProxiesHaveMethodSignatures) {
  Client client(kService);
  NSMethodSignature *signature =
      [(NSObject *)client.proxy() methodSignatureForSelector:@selector(echo:reply:)];
  EXPECT_EQ([signature numberOfArguments], 4u);
}

/// A delegate that takes long to refuse a connection.
@interface XPCTestSlowDelegate : XPCTestWitness <NSXPCListenerDelegate> {
 @public
  Counter *_asked;
  Counter *_mayGoOn;
}
@end

@implementation XPCTestSlowDelegate
- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection {
  (void)listener;
  (void)connection;
  _asked->add();
  _mayGoOn->wait();
  return NO;
}
@end

TEST_F(XPC, ADelegateStaysWhileItIsAsked) {
  Counter gone, asked, mayGoOn;
  XPCTestSlowDelegate *slow = [[XPCTestSlowDelegate alloc] initWithCounter:&gone];
  slow->_asked = &asked;
  slow->_mayGoOn = &mayGoOn;
  listener_.delegate = slow;
  Client client(kService);
  EXPECT_TRUE(asked.wait());
  [listener_ invalidate];
  [slow release];
  EXPECT_EQ(gone.count(), 0u);
  mayGoOn.add();
  EXPECT_TRUE(gone.wait());
}

@protocol XPCTestChoice <NSObject>
@optional
- (void)chosenWithReply:(void (^_Nonnull)(BOOL flag))reply;
- (void)leftOutWithReply:(void (^_Nonnull)(BOOL flag))reply;
/// Whose types nobody has told the layer.
- (void)unnotedWithReply:(void (^_Nonnull)(BOOL flag))reply;
@end

/// Serves some of the optional methods.
@interface XPCTestChooser : NSObject <NSXPCListenerDelegate, XPCTestChoice>
@end

@implementation XPCTestChooser
+ (void)initialize {
  const PlatformAnyArgument any;
  id<XPCTestChoice> choice =
      [[NSXPCInterface interfaceWithProtocol:@protocol(XPCTestChoice)] replyTypesRecorder];
  [choice chosenWithReply:any];
  [choice leftOutWithReply:any];
}
- (void)unnotedWithReply:(void (^)(BOOL))reply {
  reply(YES);
}
- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection {
  (void)listener;
  connection.exportedInterface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestChoice)];
  connection.exportedObject = self;
  [connection resume];
  return YES;
}
- (void)chosenWithReply:(void (^)(BOOL))reply {
  reply(YES);
}
@end

TEST_F(XPC, ARequestWhoseReplyTypesAreNotKnownEndsTheConnection) {
  XPCTestChooser *chooser = [[[XPCTestChooser alloc] init] autorelease];
  listener_.delegate = chooser;
  NSXPCConnection *connection = [[[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                          options:0] autorelease];
  Client client(connection);
  connection.remoteObjectInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestChoice)];
  Outcome chosen;
  [[connection remoteObjectProxyWithErrorHandler:chosen.onError()]
      unnotedWithReply:chosen.onFlag()];
  ASSERT_TRUE(chosen.ended.wait());
  EXPECT_EQ(chosen.code, NSXPCConnectionInterrupted);
  [listener_ invalidate];
}

TEST_F(XPC, OptionalMethodsAreSentAsOthers) {
  XPCTestChooser *chooser = [[[XPCTestChooser alloc] init] autorelease];
  listener_.delegate = chooser;
  NSXPCConnection *connection = [[[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                          options:0] autorelease];
  Client client(connection);
  connection.remoteObjectInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestChoice)];
  Outcome chosen, leftOut;
  [[connection remoteObjectProxyWithErrorHandler:chosen.onError()] chosenWithReply:chosen.onFlag()];
  ASSERT_TRUE(chosen.ended.wait());
  EXPECT_TRUE(chosen.flag);
  [[connection remoteObjectProxyWithErrorHandler:leftOut.onError()]
      leftOutWithReply:leftOut.onFlag()];
  ASSERT_TRUE(leftOut.ended.wait());
  EXPECT_EQ(leftOut.code, NSXPCConnectionInterrupted);
  [listener_ invalidate];
}

/// Looks at who wants to be connected before it resumes anything.
@interface XPCTestDoorkeeper : NSObject <NSXPCListenerDelegate> {
 @public
  Counter *_looked;
  pid_t _process;
  uid_t _user;
  gid_t _group;
}
@end

@implementation XPCTestDoorkeeper
- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection {
  (void)listener;
  _process = [connection processIdentifier];
  _user = [connection effectiveUserIdentifier];
  _group = [connection effectiveGroupIdentifier];
  _looked->add();
  return NO;
}
@end

TEST_F(XPC, AnAcceptedConnectionKnowsItsPeerBeforeResume) {
  Counter looked;
  XPCTestDoorkeeper *doorkeeper = [[XPCTestDoorkeeper alloc] init];
  doorkeeper->_looked = &looked;
  listener_.delegate = doorkeeper;
  Client client(kService);
  ASSERT_TRUE(looked.wait());
  EXPECT_EQ(doorkeeper->_process, getpid());
  EXPECT_EQ(doorkeeper->_user, geteuid());
  EXPECT_EQ(doorkeeper->_group, getegid());
  [listener_ invalidate];
  [doorkeeper release];
}

/// Answers by forwarding to a server.
@interface XPCTestForwarder : NSObject {
  XPCTestServer *_server;
}
- (instancetype)initWithServer:(XPCTestServer *)server;
@end

@implementation XPCTestForwarder
- (instancetype)initWithServer:(XPCTestServer *)server {
  self = [super init];
  if (self) {
    _server = server;
  }
  return self;
}
- (BOOL)respondsToSelector:(SEL)selector {
  return [_server respondsToSelector:selector];
}
- (NSMethodSignature *)methodSignatureForSelector:(SEL)selector {
  (void)selector;
  return [NSMethodSignature signatureWithObjCTypes:"v@:@@"];
}
- (void)forwardInvocation:(NSInvocation *)invocation {
  [invocation invokeWithTarget:_server];
}
@end

TEST_F(XPC, AnExportedObjectMayForward) {
  XPCTestForwarder *mine = [[[XPCTestForwarder alloc] initWithServer:server_] autorelease];
  NSXPCConnection *connection = [[[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                          options:0] autorelease];
  connection.exportedInterface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  connection.exportedObject = mine;
  Client client(connection);
  Outcome stored;
  Outcome &outcome = stored;
  [client.proxy(&outcome) callBack:@"and back"
                             reply:^(NSString *text) {
                               outcome.reply([text isEqual:@"and back"]);
                             }];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_TRUE(outcome.flag);
}

TEST_F(XPC, RepliesRunOnTheConnectionsQueueOneAtATime) {
  Client client(kService);
  Outcome stored;
  Outcome &outcome = stored;
  std::atomic<int> inside{0};
  std::atomic<int> *running = &inside;
  std::thread::id here = std::this_thread::get_id();
  std::thread::id *caller = &here;
  for (int i = 0; i < 200; ++i) {
    [client.proxy(&outcome) echo:nil
                           reply:^(id) {
                             bool alone = ++*running == 1;
                             bool elsewhere = std::this_thread::get_id() != *caller;
                             --*running;
                             outcome.reply(alone && elsewhere);
                             if (!alone || !elsewhere) {
                               outcome.errors = 1;
                             }
                           }];
  }
  ASSERT_TRUE(outcome.ended.wait(200));
  EXPECT_EQ(outcome.errors, 0u);
}

TEST_F(XPC, TenThousandRequestsFromEightThreadsAllEndOnce) {
  Client client(kService);
  Outcome stored;
  Outcome &outcome = stored;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&] {
      NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
      id<XPCTestService> proxy = client.proxy(&outcome);
      for (int i = 0; i < 1250; ++i) {
        [proxy echo:[NSNumber numberWithInt:i]
              reply:^(id answer) {
                outcome.reply([answer intValue] == i);
                if ([answer intValue] != i) {
                  outcome.errors = 1;
                }
              }];
      }
      [pool release];
    });
  }
  for (auto &thread : threads) {
    thread.join();
  }
  ASSERT_TRUE(outcome.ended.wait(10000));
  client.echo(nil);
  EXPECT_EQ(outcome.replies, 10000u);
  EXPECT_EQ(outcome.errors, 0u);
}

TEST_F(XPC, ManyClientsAreServedAtOnce) {
  std::vector<std::unique_ptr<Client>> clients;
  Outcome outcome;
  for (int i = 0; i < 64; ++i) {
    clients.emplace_back(new Client(kService));
  }
  for (auto &client : clients) {
    [client->proxy(&outcome) after:20 reply:outcome.onFlag()];
  }
  ASSERT_TRUE(outcome.ended.wait(64));
  EXPECT_EQ(outcome.replies, 64u);
}

TEST_F(XPC, TheCurrentConnectionIsTheCallers) {
  Client client(kService);
  NSXPCConnection *mine = client.connection();
  EXPECT_EQ([NSXPCConnection currentConnection], nil);
  Outcome stored;
  Outcome &outcome = stored;
  [client.proxy(&outcome)
      isFromProcess:getpid()
              reply:^(BOOL flag) {
                outcome.reply(flag && [NSXPCConnection currentConnection] == mine);
              }];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_TRUE(outcome.flag);
  EXPECT_EQ([client.connection() processIdentifier], getpid());
  EXPECT_EQ([client.connection() effectiveUserIdentifier], geteuid());
  EXPECT_EQ([client.connection() effectiveGroupIdentifier], getegid());
}

TEST_F(XPC, TheServiceCanCallItsClient) {
  XPCTestServer *mine = [[[XPCTestServer alloc] init] autorelease];
  NSXPCConnection *connection = [[[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                          options:0] autorelease];
  connection.exportedInterface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  connection.exportedObject = mine;
  Client client(connection);
  Outcome stored;
  Outcome &outcome = stored;
  [client.proxy(&outcome) callBack:@"and back"
                             reply:^(NSString *text) {
                               outcome.reply([text isEqual:@"and back"]);
                             }];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_TRUE(outcome.flag);
}

TEST_F(XPC, AnAnonymousListenerIsReachedThroughItsEndpoint) {
  NSXPCListener *anonymous = [NSXPCListener anonymousListener];
  anonymous.delegate = server_;
  NSXPCListenerEndpoint *endpoint = anonymous.endpoint;
  Client early([[[NSXPCConnection alloc] initWithListenerEndpoint:endpoint] autorelease]);
  [anonymous resume];
  EXPECT_EQ(early.connection().endpoint, endpoint);
  EXPECT_EQ(early.connection().serviceName, nil);
  EXPECT_TRUE([early.echo(@"x") isEqual:@"x"]);
  [anonymous invalidate];
  EXPECT_TRUE([early.echo(@"x") isEqual:@"x"]) << "accepted connections stay";
  Client late([[[NSXPCConnection alloc] initWithListenerEndpoint:endpoint] autorelease]);
  EXPECT_TRUE(late.invalidated.wait());
}

TEST_F(XPC, ARefusedConnectionEnds) {
  server_.refuses = YES;
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
}

TEST_F(XPC, TheInvalidationHandlerIsTheLastToRun) {
  server_.refuses = YES;
  constexpr unsigned kCount = 2000;
  std::vector<Counter> invalidated(kCount);
  Counter lateOnes;
  Counter *late = &lateOnes;
  for (unsigned i = 0; i < kCount; ++i) {
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    NSXPCConnection *connection = [[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                           options:0];
    Counter *ended = &invalidated[i];
    connection.interruptionHandler = ^{
      if (ended->count()) {
        late->add();
      }
    };
    connection.invalidationHandler = ^{
      ended->add();
    };
    [connection resume];
    // About as long as it takes to be refused.
    std::this_thread::sleep_for(std::chrono::microseconds(i % 200));
    [connection invalidate];
    EXPECT_TRUE(ended->wait());
    [connection release];
    [pool release];
  }
  EXPECT_EQ(late->count(), 0u);
}

TEST_F(XPC, SuspensionHoldsRepliesBackAndLosesNone) {
  Client client(kService);
  Outcome outcome;
  [client.connection() suspend];
  [client.connection() suspend];
  for (int i = 0; i < 10; ++i) {
    [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  }
  Client other(kService);
  // The service has answered all of them by then.
  while ([[server_ events] count] < 1) {
    [client.proxy() reportEvent:@"e" info:nil];
    other.echo(nil);
  }
  [client.connection() resume];
  EXPECT_EQ(outcome.ended.count(), 0u);
  [client.connection() resume];
  EXPECT_TRUE(outcome.ended.wait(10));
}

TEST_F(XPC, SuspensionInsideAReplyLosesNone) {
  Client client(kService);
  NSXPCConnection *connection = client.connection();
  Outcome stored;
  Outcome &outcome = stored;
  [connection suspend];
  for (int i = 0; i < 10; ++i) {
    [client.proxy() echo:nil
                   reply:^(id) {
                     if (outcome.replies == 1) {
                       [connection suspend];
                     }
                     outcome.reply(YES);
                   }];
  }
  [client.proxy() reportEvent:@"e" info:nil];
  Client other(kService);
  while ([[server_ events] count] < 1) {
    other.echo(nil);
  }
  [connection resume];
  ASSERT_TRUE(outcome.ended.wait(2));
  // Fails at once, on the queue: the queue has left the replies then.
  Outcome without;
  [client.proxy(&without) echo:nil reply:(void (^_Nonnull)(id))nil];
  ASSERT_TRUE(without.ended.wait());
  EXPECT_EQ(outcome.ended.count(), 2u);
  [connection resume];
  EXPECT_TRUE(outcome.ended.wait(10));
}

TEST_F(XPC, MessagesBeforeResumeAreSentAfterIt) {
  NSXPCConnection *connection = [[[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                          options:0] autorelease];
  connection.remoteObjectInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  Outcome outcome;
  [[connection remoteObjectProxyWithErrorHandler:outcome.onError()] echo:@"early"
                                                                   reply:outcome.onObject()];
  EXPECT_EQ(outcome.ended.count(), 0u);
  Client client(connection);
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.replies, 1u);
}

TEST_F(XPC, OnlyTheClassesSetAreLetThrough) {
  NSXPCInterface *interface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  EXPECT_TRUE([[interface classesForSelector:@selector(echo:reply:) argumentIndex:0
                                     ofReply:YES] containsObject:[NSString class]]);
  NSSet *classes = [NSSet setWithObjects:[NSArray class], [NSString class], nil];
  [interface setClasses:classes forSelector:@selector(echo:reply:) argumentIndex:0 ofReply:YES];
  EXPECT_TRUE([[interface classesForSelector:@selector(echo:reply:) argumentIndex:0
                                     ofReply:YES] isEqual:classes]);
  EXPECT_INVALID_ARGUMENT([interface setClasses:classes
                                    forSelector:@selector(unheardOfWithReply:)
                                  argumentIndex:0
                                        ofReply:YES]);

  NSXPCConnection *connection = [[[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                          options:0] autorelease];
  Client client(connection);
  connection.remoteObjectInterface = interface;
  id allowed = [NSArray arrayWithObject:@"x"];
  EXPECT_TRUE([client.echo(allowed) isEqual:allowed]);
  Outcome outcome;
  [client.proxy(&outcome) echo:[NSArray arrayWithObject:[NSNumber numberWithInt:1]]
                         reply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionReplyInvalid);
  EXPECT_TRUE([client.echo(allowed) isEqual:allowed]) << "only the request fails";
  EXPECT_EQ(client.interrupted.count(), 0u);
}

TEST_F(XPC, InvalidationFailsWhatIsOutstandingOnceAndThenAllElse) {
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) hangWithReply:outcome.onFlag()];
  id<XPCTestFutureService> proxy = client.proxy(&outcome);
  [client.connection() invalidate];
  [client.connection() invalidate];
  ASSERT_TRUE(outcome.ended.wait());
  ASSERT_TRUE(client.invalidated.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
  outcome.code = 0;
  [proxy hangWithReply:outcome.onFlag()];
  ASSERT_TRUE(outcome.ended.wait(2));
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
  [proxy reportEvent:nil info:nil];
  ASSERT_TRUE(outcome.ended.wait(3)) << "a message without a reply, too";
  EXPECT_EQ(outcome.replies, 0u);
  EXPECT_EQ(client.invalidated.count(), 1u);
  EXPECT_EQ(client.interrupted.count(), 0u);
}

TEST_F(XPC, AReleasedConnectionGoesAndFailsWhatIsOutstanding) {
  Counter handlersGone, objectGone, invalidated;
  Counter *seen = &invalidated;
  Outcome outcome;
  {
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    NSXPCConnection *connection = [[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                           options:0];
    connection.remoteObjectInterface =
        [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
    XPCTestWitness *captured = [[[XPCTestWitness alloc] initWithCounter:&handlersGone] autorelease];
    connection.exportedObject = [[[XPCTestWitness alloc] initWithCounter:&objectGone] autorelease];
    connection.invalidationHandler = ^{
      (void)captured;
      seen->add();
    };
    connection.interruptionHandler = ^{
      (void)captured;
    };
    [connection resume];
    [[connection remoteObjectProxyWithErrorHandler:outcome.onError()]
        hangWithReply:outcome.onFlag()];
    [connection release];
    [pool release];
  }
  EXPECT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
  EXPECT_TRUE(invalidated.wait());
  EXPECT_TRUE(handlersGone.wait());
  EXPECT_TRUE(objectGone.wait());
}

TEST_F(XPC, InvalidatingBreaksACycleThroughTheHandlers) {
  Counter gone;
  {
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    NSXPCConnection *connection = [[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                           options:0];
    connection.exportedObject = [[[XPCTestWitness alloc] initWithCounter:&gone] autorelease];
    connection.interruptionHandler = ^{
      [connection resume];
    };
    [connection resume];
    [connection release];
    EXPECT_EQ(gone.count(), 0u);
    [connection invalidate];
    [pool release];
  }
  EXPECT_TRUE(gone.wait());
}

TEST_F(XPC, ReleasedConnectionsGiveTheirSocketsBack) {
  {
    Client(kService).echo(nil);
  }
  unsigned before = OpenDescriptors();
  for (int i = 0; i < 50; ++i) {
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    Client(kService).echo(nil);
    [pool release];
  }
  // Both ends lie in this process, and are closed by its threads.
  auto end = Clock::now() + kPatience;
  while (OpenDescriptors() > before && Clock::now() < end) {
    std::this_thread::yield();
  }
  EXPECT_LE(OpenDescriptors(), before);
}

TEST_F(XPC, ANameNobodyServesInvalidatesSoonButNotInsideResume) {
  NSXPCConnection *connection = [[[NSXPCConnection alloc] initWithMachServiceName:@"nobody"
                                                                          options:0] autorelease];
  connection.remoteObjectInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  Outcome stored;
  Outcome &outcome = stored;
  std::thread::id here = std::this_thread::get_id();
  std::thread::id *caller = &here;
  connection.invalidationHandler = ^{
    outcome.reply(std::this_thread::get_id() != *caller);
  };
  auto start = Clock::now();
  [connection resume];
  [[connection remoteObjectProxyWithErrorHandler:outcome.onError()] echo:nil
                                                                   reply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait(2));
  EXPECT_LT(MillisecondsSince(start), 5000);
  EXPECT_EQ(outcome.replies, 1u) << "the invalidation";
  EXPECT_TRUE(outcome.flag);
  EXPECT_EQ(outcome.errors, 1u);
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
}

TEST_F(XPC, ErrorsHaveADomainACodeAndAText) {
  Client client(@"nobody");
  NSError *error = client.echo(nil);
  ASSERT_TRUE([error isKindOfClass:[NSError class]]);
  EXPECT_TRUE([[error domain] isEqual:NSCocoaErrorDomain]);
  EXPECT_EQ([error code], NSXPCConnectionInvalid);
  EXPECT_GT([[error localizedDescription] length], 10u);
}

TEST_F(XPC, NamesThatAreNoneInvalidate) {
  for (NSString *name in @[ @"", @".", @"..", @"../x", @"a/b", @".com.example.test.lock" ]) {
    Client client(name);
    EXPECT_TRUE(client.invalidated.wait()) << [name UTF8String];
    NSXPCListener *listener = [[NSXPCListener alloc] initWithMachServiceName:name];
    [listener resume];
    [listener release];
  }
}

TEST_F(XPC, TheSecondListenerOfANameFails) {
  XPCTestServer *other = [[[XPCTestServer alloc] init] autorelease];
  NSXPCListener *second = [[[NSXPCListener alloc] initWithMachServiceName:kService] autorelease];
  second.delegate = other;
  [second resume];
  Client client(kService);
  [client.proxy() reportEvent:@"for the first" info:nil];
  client.echo(nil);
  EXPECT_EQ([[server_ events] count], 1u);
  EXPECT_EQ([[other events] count], 0u);
  [second invalidate];
  EXPECT_TRUE([client.echo(@"x") isEqual:@"x"]);
  EXPECT_TRUE([Client(kService).echo(@"x") isEqual:@"x"]) << "the socket must not have gone";
}

TEST_F(XPC, ANameCanBeServedAgain) {
  [listener_ invalidate];
  {
    Client client(kService);
    EXPECT_TRUE(client.invalidated.wait());
  }
  NSXPCListener *second = [[[NSXPCListener alloc] initWithMachServiceName:kService] autorelease];
  second.delegate = server_;
  [second resume];
  EXPECT_TRUE([Client(kService).echo(@"x") isEqual:@"x"]);
  [second invalidate];
}

TEST_F(XPC, ASocketThatADeadProcessLeftIsReplaced) {
  {
    RawSocket dead = RawSocket::listen(directory_.socket("stale"), 1);
  }
  ASSERT_TRUE(std::filesystem::exists(directory_.socket("stale")));
  {
    Client client(@"stale");
    EXPECT_TRUE(client.invalidated.wait());
  }
  NSXPCListener *listener = [[[NSXPCListener alloc] initWithMachServiceName:@"stale"] autorelease];
  listener.delegate = server_;
  [listener resume];
  EXPECT_TRUE([Client(@"stale").echo(@"x") isEqual:@"x"]);
  [listener invalidate];
}

namespace {

/// Whether a listener in the service directory `path` can be reached.
bool Works(const std::string &path, XPCTestServer *server) {
  setenv("COCOA_SERVICE_DIR", path.c_str(), 1);
  NSXPCListener *listener =
      [[[NSXPCListener alloc] initWithMachServiceName:@"elsewhere"] autorelease];
  listener.delegate = server;
  [listener resume];
  bool works = [Client(@"elsewhere").echo(@"x") isEqual:@"x"];
  [listener invalidate];
  return works;
}

}  // namespace

TEST_F(XPC, TheServiceDirectoryIsMadeForItsOwnerAlone) {
  std::string path = directory_.path() + "/made";
  EXPECT_TRUE(Works(path, server_));
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700u);
}

TEST_F(XPC, AServiceDirectoryThatOthersCanEnterIsRefused) {
  std::string path = directory_.path() + "/open";
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  EXPECT_TRUE(Works(path, server_));
  for (mode_t mode : {0710, 0701, 0750, 0777}) {
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    EXPECT_FALSE(Works(path, server_)) << std::oct << mode;
  }
}

TEST_F(XPC, AServiceDirectoryThatIsALinkIsRefused) {
  std::string path = directory_.path() + "/link";
  ASSERT_EQ(symlink(directory_.path().c_str(), path.c_str()), 0);
  EXPECT_FALSE(Works(path, server_));
}

TEST_F(XPC, AServiceDirectoryOfAnotherUserIsRefused) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give a directory away";
  }
  std::string path = directory_.path() + "/foreign";
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  ASSERT_EQ(chown(path.c_str(), 12345, 12345), 0);
  EXPECT_FALSE(Works(path, server_));
}

TEST_F(XPC, LongServiceDirectoriesWork) {
  std::string path = directory_.path();
  for (int i = 0; i < 3; ++i) {
    path += "/" + std::string(80, 'd');
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  }
  EXPECT_TRUE(Works(path, server_));
}

TEST_F(XPC, TheRuntimeDirectoryAndTheTemporaryOneAreUsedWithoutAnyOther) {
  unsetenv("COCOA_SERVICE_DIR");
  std::string before = getenv("XDG_RUNTIME_DIR") ? getenv("XDG_RUNTIME_DIR") : "";
  std::string temporary = getenv("TMPDIR") ? getenv("TMPDIR") : "";
  NSXPCListener *listener =
      [[[NSXPCListener alloc] initWithMachServiceName:@"elsewhere"] autorelease];
  setenv("XDG_RUNTIME_DIR", directory_.path().c_str(), 1);
  [listener resume];
  EXPECT_TRUE(std::filesystem::exists(directory_.path() + "/cocoa-services/elsewhere"));
  [listener invalidate];

  unsetenv("XDG_RUNTIME_DIR");
  setenv("TMPDIR", directory_.path().c_str(), 1);
  listener = [[[NSXPCListener alloc] initWithMachServiceName:@"elsewhere"] autorelease];
  [listener resume];
  EXPECT_TRUE(std::filesystem::exists(directory_.path() + "/cocoa-services-" +
                                      std::to_string(geteuid()) + "/elsewhere"));
  [listener invalidate];
  if (!before.empty()) {
    setenv("XDG_RUNTIME_DIR", before.c_str(), 1);
  }
  temporary.empty() ? unsetenv("TMPDIR") : setenv("TMPDIR", temporary.c_str(), 1);
}

TEST_F(XPC, NewConnectionsNeedNoThreadsOfTheirOwn) {
  // The threads that stay, and one that handlers can run on.
  Client client(kService);
  client.echo(nil);
  Counter worked;
  Counter *done = &worked;
  dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), ^{
    done->add();
  });
  ASSERT_TRUE(worked.wait());

  pthread_attr_t before, impossible;
  ASSERT_EQ(pthread_getattr_default_np(&before), 0);
  ASSERT_EQ(pthread_getattr_default_np(&impossible), 0);
  // More than there are addresses.
  ASSERT_EQ(pthread_attr_setstacksize(&impossible, size_t{1} << 50), 0);
  ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
  {
    Client starved(kService);
    Outcome outcome;
    [starved.proxy(&outcome) echo:@"x" reply:outcome.onObject()];
    EXPECT_TRUE(outcome.ended.wait());
    EXPECT_EQ(outcome.replies, 1u);
  }
  ASSERT_EQ(pthread_setattr_default_np(&before), 0);
  pthread_attr_destroy(&impossible);
  pthread_attr_destroy(&before);
}

TEST_F(XPC, WithoutDescriptorsNothingSpinsAndServingGoesOnAfterwards) {
  Client client(kService);
  client.echo(nil);
  RawSocket waiting = RawSocket::connect(directory_.socket([kService UTF8String]));
  ASSERT_TRUE(waiting.isOpen());
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  std::vector<RawSocket> callers;
  for (int i = 0; i < 4; ++i) {
    callers.push_back(RawSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)));
  }
  rlimit none = before;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  directory_.socket([kService UTF8String]).copy(address.sun_path, sizeof address.sun_path - 1);
  for (auto &caller : callers) {
    EXPECT_EQ(connect(caller.fd(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  }
  timespec start, end;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &start);
  Outcome outcome;
  [client.proxy(&outcome) after:300 reply:outcome.onFlag()];
  EXPECT_TRUE(outcome.ended.wait());
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &end);
  Client starved(kService);
  EXPECT_TRUE(starved.invalidated.wait()) << "no descriptor for it";
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);

  double spent = static_cast<double>(end.tv_sec - start.tv_sec) +
                 static_cast<double>(end.tv_nsec - start.tv_nsec) / 1e9;
  EXPECT_LT(spent, 0.1);
  EXPECT_TRUE([Client(kService).echo(@"x") isEqual:@"x"]);
}
