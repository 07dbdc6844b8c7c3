// What Apple's header states about connections, listeners and proxies, a test a statement, as far
// as the other tests do not have it.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "xpc_test_client.h"
#import "xpc_test_server.h"

using namespace xpc_test;

/// A server that calls a block before each echo.
@interface XPCTestVisitor : XPCTestServer {
  void (^_visit)(void);
}
- (instancetype)initWithVisit:(void (^)(void))visit;
@end

@implementation XPCTestVisitor
- (instancetype)initWithVisit:(void (^)(void))visit {
  self = [super init];
  if (self) {
    _visit = [visit copy];
  }
  return self;
}
- (void)dealloc {
  [_visit release];
  [super dealloc];
}
- (void)echo:(id)object reply:(void (^)(id))reply {
  _visit();
  [super echo:object reply:reply];
}
@end

/// Exports a server on each connection that it is asked about, and does what the test wants besides.
@interface XPCTestHost : NSObject <NSXPCListenerDelegate> {
 @public
  XPCTestServer *_server;
  void (^_onAccept)(NSXPCConnection *connection);  ///< Resumes it, or not.
  BOOL _refuses;
  Counter _asked;
  std::atomic<bool> _inside;
  std::atomic<bool> _met;
}
@end

@implementation XPCTestHost

- (instancetype)init {
  self = [super init];
  if (self) {
    _server = [[XPCTestServer alloc] init];
  }
  return self;
}

- (void)dealloc {
  [_server release];
  [_onAccept release];
  [super dealloc];
}

- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection {
  (void)listener;
  _met = _met || _inside.exchange(true) || [NSThread isMainThread];
  connection.exportedInterface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  connection.exportedObject = _server;
  if (_onAccept) {
    _onAccept(connection);
  } else {
    [connection resume];
  }
  _inside = false;
  _asked.add();
  return !_refuses;
}

@end

namespace {

/// A listener that is reached through its endpoint, not resumed yet.
class XPCStatements : public ::testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    host_ = [[XPCTestHost alloc] init];
    listener_ = [[NSXPCListener anonymousListener] retain];
    listener_.delegate = host_;
  }

  void TearDown() override {
    [listener_ invalidate];
    [listener_ release];
    [host_ release];
    [pool_ release];
  }

  NSXPCConnection *connection() {
    return [[[NSXPCConnection alloc] initWithListenerEndpoint:listener_.endpoint] autorelease];
  }

  ServiceDirectory directory_;
  XPCTestHost *host_;
  NSXPCListener *listener_;
  NSAutoreleasePool *pool_;
};

constexpr std::chrono::milliseconds kMoment(100);

}  // namespace

TEST_F(XPCStatements, ProxiesConformToProxyCreatingAndMakeNewProxies) {
  [listener_ resume];
  Client client(connection());
  id<NSXPCProxyCreating> first = (id)client.proxy();
  EXPECT_TRUE([(NSObject *)first conformsToProtocol:@protocol(NSXPCProxyCreating)]);
  Outcome plain, handled;
  [[first remoteObjectProxy] echo:nil reply:plain.onObject()];
  [[first remoteObjectProxyWithErrorHandler:handled.onError()] hangWithReply:handled.onFlag()];
  EXPECT_TRUE(plain.ended.wait());
  [client.connection() invalidate];
  EXPECT_TRUE(handled.ended.wait());
  EXPECT_EQ(handled.errors, 1u);
}

TEST_F(XPCStatements, AMessageNeedsARemoteObjectInterface) {
  NSString *raised = nil;
  @try {
    [connection() remoteObjectProxy];
  } @catch (NSException *exception) {
    raised = [exception name];
  }
  EXPECT_TRUE([raised isEqual:NSInvalidArgumentException]);
}

TEST_F(XPCStatements, AnExportedObjectNeedsAnExportedInterface) {
  host_->_onAccept = [^(NSXPCConnection *accepted) {
    accepted.exportedInterface = nil;
    [accepted resume];
  } copy];
  [listener_ resume];
  Client client(connection());
  Outcome outcome;
  [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.errors, 1u);
}

TEST_F(XPCStatements, RepliesAndHandlersRunOnOneSerialQueue) {
  [listener_ resume];
  NSXPCConnection *mine = connection();
  Counter ended;
  Counter *done = &ended;
  static std::atomic<int> inside;
  inside = 0;
  static std::atomic<bool> met;
  met = false;
  void (^visit)(void) = [[^{
    met = met || inside++ || [NSThread isMainThread];
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    --inside;
    done->add();
  } copy] autorelease];
  mine.remoteObjectInterface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  mine.invalidationHandler = visit;
  [mine resume];
  for (int i = 0; i < 20; ++i) {
    [[mine remoteObjectProxy] echo:nil
                             reply:^(id) {
                               visit();
                             }];
    [[mine remoteObjectProxyWithErrorHandler:^(NSError *) {
      visit();
    }] hangWithReply:^(BOOL){
    }];
  }
  EXPECT_TRUE(ended.wait(20));
  [mine invalidate];
  EXPECT_TRUE(ended.wait(41));
  EXPECT_FALSE(met);
}

TEST_F(XPCStatements, MessagesToAnExportedObjectAreSerializedOnANonMainQueue) {
  static std::atomic<int> inside;
  inside = 0;
  static std::atomic<bool> met;
  met = false;
  host_->_onAccept = [^(NSXPCConnection *accepted) {
    accepted.exportedObject = [[[XPCTestVisitor alloc] initWithVisit:^{
      met = met || inside++ || [NSThread isMainThread];
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      --inside;
    }] autorelease];
    [accepted resume];
  } copy];
  [listener_ resume];
  Client client(connection());
  Outcome outcome;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
      for (int i = 0; i < 10; ++i) {
        [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
      }
      [pool release];
    });
  }
  for (auto &thread : threads) {
    thread.join();
  }
  EXPECT_TRUE(outcome.ended.wait(40));
  EXPECT_EQ(outcome.replies, 40u);
  EXPECT_FALSE(met);
}

TEST_F(XPCStatements, HandlersAreClearedAfterTheConnectionBecomesInvalid) {
  NSXPCConnection *mine = connection();
  Counter ended;
  Counter *done = &ended;
  mine.interruptionHandler = ^{
  };
  mine.invalidationHandler = ^{
    done->add();
  };
  EXPECT_NE((id)mine.interruptionHandler, nil);
  [mine resume];
  [mine invalidate];
  EXPECT_TRUE(ended.wait());
  EXPECT_EQ((id)mine.interruptionHandler, nil);
  EXPECT_EQ((id)mine.invalidationHandler, nil);
}

TEST_F(XPCStatements, AConnectionToAnEndpointIsInvalidatedFromTheRemoteSide) {
  __block NSXPCConnection *accepted = nil;
  host_->_onAccept = [^(NSXPCConnection *given) {
    accepted = [given retain];
    [given resume];
  } copy];
  [listener_ resume];
  Client client(connection());
  client.echo(nil);
  [accepted invalidate];
  EXPECT_TRUE(client.invalidated.wait());
  EXPECT_EQ(client.interrupted.count(), 0u);
  [accepted release];
}

TEST_F(XPCStatements, AMessageFromWithinAnInvalidationHandlerFails) {
  [listener_ resume];
  NSXPCConnection *mine = connection();
  mine.remoteObjectInterface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  Outcome stored;
  Outcome &outcome = stored;
  mine.invalidationHandler = ^{
    [[mine remoteObjectProxyWithErrorHandler:outcome.onError()] echo:nil reply:outcome.onObject()];
  };
  [mine resume];
  [mine invalidate];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
}

TEST_F(XPCStatements, AListenerWithoutADelegateRejectsAllConnections) {
  listener_.delegate = nil;
  [listener_ resume];
  Client client(connection());
  Outcome outcome;
  [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  EXPECT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.errors, 1u);
  EXPECT_TRUE(client.invalidated.wait());
}

TEST_F(XPCStatements, AListenerStartsSuspendedAndCanBeSuspendedAgain) {
  Client early(connection());
  Outcome first, second;
  [early.proxy(&first) echo:nil reply:first.onObject()];
  EXPECT_FALSE(host_->_asked.wait(1, kMoment));
  [listener_ resume];
  EXPECT_TRUE(first.ended.wait());
  EXPECT_EQ(first.replies, 1u);

  [listener_ suspend];
  Client late(connection());
  [late.proxy(&second) echo:nil reply:second.onObject()];
  EXPECT_FALSE(host_->_asked.wait(2, kMoment));
  [listener_ resume];
  EXPECT_TRUE(second.ended.wait());
  EXPECT_EQ(second.replies, 1u);
}

TEST_F(XPCStatements, TheDelegateIsAskedOnASerialQueueOfTheListener) {
  [listener_ resume];
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 20; ++i) {
    clients.emplace_back(new Client(connection()));
  }
  EXPECT_TRUE(host_->_asked.wait(20));
  EXPECT_FALSE(host_->_met);
}

TEST_F(XPCStatements, AfterItsInvalidationAListenerMakesNoMoreConnections) {
  [listener_ resume];
  Client client(connection());
  // Served before the delegate has returned.
  client.echo(nil);
  ASSERT_TRUE(host_->_asked.wait());
  [listener_ invalidate];
  [listener_ resume];
  Client late(connection());
  EXPECT_TRUE(late.invalidated.wait());
  EXPECT_EQ(host_->_asked.count(), 1u);
}

TEST_F(XPCStatements, ARefusedConnectionIsInvalidatedAfterTheMethodReturns) {
  Counter ended;
  Counter *done = &ended;
  Counter *asked = &host_->_asked;
  static std::atomic<bool> tooEarly;
  tooEarly = false;
  host_->_refuses = YES;
  host_->_onAccept = [^(NSXPCConnection *accepted) {
    accepted.invalidationHandler = ^{
      tooEarly = asked->count() == 0;
      done->add();
    };
    [accepted resume];
  } copy];
  [listener_ resume];
  Client client(connection());
  EXPECT_TRUE(ended.wait());
  EXPECT_FALSE(tooEarly);
  EXPECT_TRUE(client.invalidated.wait());
}

TEST_F(XPCStatements, AnAcceptedConnectionMayBeResumedLater) {
  __block NSXPCConnection *accepted = nil;
  host_->_onAccept = [^(NSXPCConnection *given) {
    accepted = [given retain];
  } copy];
  [listener_ resume];
  Client client(connection());
  Outcome outcome;
  [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  ASSERT_TRUE(host_->_asked.wait());
  EXPECT_FALSE(outcome.ended.wait(1, kMoment));
  [accepted resume];
  EXPECT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.replies, 1u);
  [accepted invalidate];
  [accepted release];
}

/// Where a Mac asks for balanced suspends first.
TEST_F(XPCStatements, AConnectionThatIsInvalidatedWhileSuspendedFailsWhatIsOutstanding) {
  [listener_ resume];
  Client client(connection());
  Outcome outcome;
  [client.proxy(&outcome) hangWithReply:outcome.onFlag()];
  [client.connection() suspend];
  [client.connection() invalidate];
  EXPECT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
  EXPECT_TRUE(client.invalidated.wait());
}
