// Two things that meet on a connection, in both orders: its queue is held in a block of it, and
// what the other end does has come in by then.

#import <Foundation/PlatformReplyTypes.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <tuple>

#include "xpc_test_client.h"
#include "xpc_test_frames.h"

using namespace xpc_test;

namespace {

const char kName[] = "com.example.races";
NSString *const kService = @"com.example.races";

/// Holds the thread of a block until the test lets it go on.
class Hold {
 public:
  void pass() {
    reached_.add();
    mayGoOn_.wait();
  }
  bool isReached() { return reached_.wait(); }
  void end() { mayGoOn_.add(); }

  /// A reply block that holds the connection's queue.
  void (^onObject(Outcome *outcome))(id) {
    return [[^(id object) {
      outcome->reply(object != nil);
      this->pass();
    } copy] autorelease];
  }

 private:
  Counter reached_, mayGoOn_;
};

/// A client with a bare socket as peer.
class XPCRaces : public ::testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    listener_ = RawSocket::listen(directory_.socket(kName), 8);
  }
  void TearDown() override { [pool_ release]; }

  /// Takes over the client's next connection, and reads `requests` from it.
  RawSocket acceptRequests(unsigned requests) {
    RawSocket peer = listener_.accept();
    for (unsigned i = 0; i < requests; ++i) {
      EXPECT_FALSE(peer.readFrame().empty());
    }
    return peer;
  }

  ServiceDirectory directory_;
  RawSocket listener_;

 private:
  NSAutoreleasePool *pool_;
};

const Bytes kYes = {0x25};

}  // namespace

TEST_F(XPCRaces, AReplyThatHasComeInDoesNotCountAfterTheInvalidation) {
  Hold inReply;
  Outcome first, second;
  Client client(kService);
  [client.proxy(&first) echo:nil reply:inReply.onObject(&first)];
  [client.proxy(&second) echo:nil reply:second.onObject()];
  RawSocket peer = acceptRequests(2);
  // 1. Both replies come in; the first one holds the queue.
  ASSERT_TRUE(peer.write(Joined({ReplyFrame(1, kYes), ReplyFrame(2, kYes)})));
  ASSERT_TRUE(inReply.isReached());
  // 2. The connection is invalidated. Nothing comes of that beside the queue.
  [client.connection() invalidate];
  EXPECT_EQ(second.ended.count() + client.invalidated.count(), 0u);
  // 3. The queue goes on.
  inReply.end();
  ASSERT_TRUE(client.invalidated.wait());
  EXPECT_EQ(second.errors, 1u);
  EXPECT_EQ(second.replies, 0u);
  EXPECT_EQ(second.code, NSXPCConnectionInvalid);
  EXPECT_EQ(first.ended.count(), 1u);
}

TEST_F(XPCRaces, AReplyThatIsUnderWayCountsInSpiteOfTheInvalidation) {
  Hold inReply;
  Outcome first, second;
  Client client(kService);
  [client.proxy(&first) echo:nil reply:first.onObject()];
  [client.proxy(&second) echo:nil reply:inReply.onObject(&second)];
  RawSocket peer = acceptRequests(2);
  // 1. Both replies come in; the second one holds the queue.
  ASSERT_TRUE(peer.write(Joined({ReplyFrame(1, kYes), ReplyFrame(2, kYes)})));
  ASSERT_TRUE(inReply.isReached());
  // 2. The connection is invalidated. 3. The queue goes on.
  [client.connection() invalidate];
  EXPECT_EQ(client.invalidated.count(), 0u);
  inReply.end();
  ASSERT_TRUE(client.invalidated.wait());
  EXPECT_EQ(first.replies + second.replies, 2u);
  EXPECT_EQ(first.errors + second.errors, 0u);
}

TEST_F(XPCRaces, AReplyInFrontOfThePeersEndCounts) {
  Hold inReply;
  Outcome first, second, third;
  Client client(kService);
  [client.proxy(&first) echo:nil reply:inReply.onObject(&first)];
  [client.proxy(&second) echo:nil reply:second.onObject()];
  [client.proxy(&third) echo:nil reply:third.onObject()];
  // 1. Two replies and the peer's end come in; the first reply holds the queue.
  RawSocket peer = acceptRequests(3);
  ASSERT_TRUE(peer.write(Joined({ReplyFrame(1, kYes), ReplyFrame(2, kYes)})));
  peer.close();
  ASSERT_TRUE(inReply.isReached());
  // 2. The queue goes on.
  inReply.end();
  ASSERT_TRUE(client.interrupted.wait());
  EXPECT_EQ(second.replies, 1u);
  EXPECT_EQ(third.errors, 1u);
  EXPECT_EQ(third.code, NSXPCConnectionInterrupted);
}

TEST_F(XPCRaces, AnEndThatHasComeInIsNoInterruptionAfterTheInvalidation) {
  Hold inReply;
  Outcome first, second;
  Client client(kService);
  [client.proxy(&first) echo:nil reply:inReply.onObject(&first)];
  [client.proxy(&second) echo:nil reply:second.onObject()];
  // 1. A reply and the peer's end come in; the reply holds the queue.
  RawSocket peer = acceptRequests(2);
  ASSERT_TRUE(peer.write(ReplyFrame(1, kYes)));
  peer.close();
  ASSERT_TRUE(inReply.isReached());
  // 2. The connection is invalidated. 3. The queue goes on.
  [client.connection() invalidate];
  inReply.end();
  ASSERT_TRUE(client.invalidated.wait());
  EXPECT_EQ(client.interrupted.count(), 0u);
  EXPECT_EQ(second.errors, 1u);
  EXPECT_EQ(second.code, NSXPCConnectionInvalid);
}

TEST_F(XPCRaces, AnInterruptionThatIsUnderWayComesBeforeTheInvalidation) {
  Hold inError;
  Hold *held = &inError;
  Outcome stored;
  Outcome &outcome = stored;
  Client client(kService);
  Client *counters = &client;
  [[client.connection() remoteObjectProxyWithErrorHandler:^(NSError *error) {
    outcome.fail(error);
    held->pass();
  }] echo:nil reply:outcome.onObject()];
  // 1. The peer ends; the failure of the request holds the queue.
  acceptRequests(1).close();
  ASSERT_TRUE(inError.isReached());
  // 2. The handler is taken away, too late, 3. and the connection invalidated. 4. The queue goes on.
  client.connection().interruptionHandler = nil;
  [client.connection() invalidate];
  EXPECT_EQ(client.interrupted.count() + client.invalidated.count(), 0u);
  inError.end();
  ASSERT_TRUE(client.invalidated.wait());
  EXPECT_EQ(counters->interrupted.count(), 1u);
  EXPECT_EQ(outcome.errors, 1u);
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
}

TEST_F(XPCRaces, ALateReplyIsNoneToARequestOfTheNextConnection) {
  Hold inError;
  Hold *held = &inError;
  Outcome stored, second;
  Outcome &first = stored;
  Client client(kService);
  [[client.connection() remoteObjectProxyWithErrorHandler:^(NSError *error) {
    first.fail(error);
    held->pass();
  }] echo:nil reply:first.onObject()];
  // 1. The peer ends; the failure of the request holds the queue.
  acceptRequests(1).close();
  ASSERT_TRUE(inError.isReached());
  // 2. The next request connects again. 3. The peer replies to the former one, and then to it.
  [client.proxy(&second) echo:nil reply:second.onObject()];
  RawSocket successor = acceptRequests(1);
  ASSERT_TRUE(successor.write(Joined({ReplyFrame(1, kYes), ReplyFrame(2, kYes)})));
  // 4. The queue goes on.
  inError.end();
  ASSERT_TRUE(second.ended.wait());
  EXPECT_EQ(second.replies, 1u);
  EXPECT_EQ(first.replies, 0u);
  EXPECT_EQ(first.errors, 1u);
  EXPECT_EQ(client.interrupted.count(), 1u);
}

TEST_F(XPCRaces, ARequestInFrontOfThePeersEndFailsWithIt) {
  Hold inReply;
  Outcome first, second, third;
  Client client(kService);
  [client.proxy(&first) echo:nil reply:inReply.onObject(&first)];
  // 1. A reply and the peer's end come in; the reply holds the queue.
  RawSocket peer = acceptRequests(1);
  ASSERT_TRUE(peer.write(ReplyFrame(1, kYes)));
  peer.close();
  ASSERT_TRUE(inReply.isReached());
  // 2. A request is sent over the connection, whose end nobody has been told of. 3. The queue goes
  //    on. 4. The request behind that connects again.
  [client.proxy(&second) echo:nil reply:second.onObject()];
  inReply.end();
  ASSERT_TRUE(client.interrupted.wait());
  EXPECT_EQ(second.errors, 1u);
  EXPECT_EQ(second.code, NSXPCConnectionInterrupted);
  [client.proxy(&third) echo:nil reply:third.onObject()];
  RawSocket successor = acceptRequests(1);
  ASSERT_TRUE(successor.write(ReplyFrame(3, kYes)));
  ASSERT_TRUE(third.ended.wait());
  EXPECT_EQ(third.replies, 1u);
}

namespace {

/// A connection that nothing but its own callbacks keeps.
NSXPCConnection *NewConnection(Counter *invalidated) {
  NSXPCConnection *connection = [[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                         options:0];
  connection.remoteObjectInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  connection.invalidationHandler = ^{
    invalidated->add();
  };
  [connection resume];
  return connection;
}

}  // namespace

TEST_F(XPCRaces, TheLastReleaseLeavesAReplyUnderWayItsConnection) {
  Hold inReply;
  Hold *held = &inReply;
  Counter invalidated, sawItself;
  Counter *saw = &sawItself;
  NSXPCConnection *connection;
  RawSocket peer;
  @autoreleasepool {
    connection = NewConnection(&invalidated);
    [[connection remoteObjectProxy]
         echo:nil
        reply:^(id) {
          held->pass();
          if ([[NSXPCConnection currentConnection].serviceName isEqual:kService]) {
            saw->add();
          }
        }];
    // 1. The reply comes in and holds the queue.
    peer = acceptRequests(1);
    ASSERT_TRUE(peer.write(ReplyFrame(1, kYes)));
    ASSERT_TRUE(inReply.isReached());
  }
  // 2. The last one who has the connection lets it go.
  [connection release];
  EXPECT_EQ(invalidated.count(), 0u);
  // 3. The queue goes on.
  inReply.end();
  EXPECT_TRUE(invalidated.wait());
  EXPECT_EQ(sawItself.count(), 1u);
  EXPECT_TRUE(peer.waitForEnd());
}

TEST_F(XPCRaces, TheLastReleaseInsideAReplyEndsTheConnectionBehindIt) {
  Counter invalidated, sawItself;
  Counter *saw = &sawItself;
  RawSocket peer;
  @autoreleasepool {
    NSXPCConnection *connection = NewConnection(&invalidated);
    // Not retained by the block: this reference is the one that is given up in it.
    __block NSXPCConnection *last = connection;
    [[connection remoteObjectProxy] echo:nil
                                   reply:^(id) {
                                     [last release];
                                     if ([NSXPCConnection currentConnection] == last) {
                                       saw->add();
                                     }
                                   }];
  }
  peer = acceptRequests(1);
  ASSERT_TRUE(peer.write(ReplyFrame(1, kYes)));
  EXPECT_TRUE(invalidated.wait());
  EXPECT_EQ(sawItself.count(), 1u);
  EXPECT_TRUE(peer.waitForEnd());
}

TEST_F(XPCRaces, TheLastReleaseDuringAnInterruptionInvalidatesBehindIt) {
  Hold inHandler;
  Hold *held = &inHandler;
  Counter invalidated;
  Outcome outcome;
  NSXPCConnection *connection;
  @autoreleasepool {
    connection = NewConnection(&invalidated);
    connection.interruptionHandler = ^{
      held->pass();
    };
    [[connection remoteObjectProxyWithErrorHandler:outcome.onError()] echo:nil
                                                                     reply:outcome.onObject()];
    // 1. The peer ends; the interruption handler holds the queue, and does not keep the connection.
    acceptRequests(1).close();
    ASSERT_TRUE(inHandler.isReached());
  }
  // 2. The last one who has the connection lets it go. 3. The queue goes on.
  [connection release];
  EXPECT_EQ(invalidated.count(), 0u);
  inHandler.end();
  EXPECT_TRUE(invalidated.wait());
  EXPECT_EQ(outcome.errors, 1u);
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
}

namespace {

using Reply = void (^)(BOOL);

}  // namespace

/// Leaves the replies to the test.
@interface XPCTestKeeper : NSObject <NSXPCListenerDelegate> {
 @public
  Counter _asked;
  Reply _reply;
  NSXPCConnection *_connection;
}
@end

@implementation XPCTestKeeper
+ (void)initialize {
  const PlatformAnyArgument any;
  [[[NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)] replyTypesRecorder]
      hangWithReply:any];
}
- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection {
  (void)listener;
  _connection = [connection retain];
  connection.exportedInterface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  connection.exportedObject = self;
  [connection resume];
  return YES;
}
- (void)dealloc {
  [_connection release];
  [_reply release];
  [super dealloc];
}
- (void)hangWithReply:(Reply)reply {
  _reply = [reply copy];
  _asked.add();
}
@end

namespace {

/// A client whose requests are answered by the test, in one process.
class XPCServerRaces : public ::testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    keeper_ = [[XPCTestKeeper alloc] init];
    listener_ = [[NSXPCListener alloc] initWithMachServiceName:kService];
    listener_.delegate = keeper_;
    [listener_ resume];
  }
  void TearDown() override {
    [listener_ invalidate];
    [listener_ release];
    [keeper_ release];
    [pool_ release];
  }

  NSXPCConnection *newConnection() {
    return [[[NSXPCConnection alloc] initWithMachServiceName:kService options:0] autorelease];
  }

  ServiceDirectory directory_;
  XPCTestKeeper *keeper_;

 private:
  NSXPCListener *listener_;
  NSAutoreleasePool *pool_;
};

}  // namespace

TEST_F(XPCServerRaces, AReplyJustBeforeTheInvalidationArrives) {
  Outcome outcome;
  Client client(newConnection());
  [client.proxy(&outcome) hangWithReply:outcome.onFlag()];
  // 1. The request waits for its reply. 2. That is given, and 3. the connection invalidated.
  ASSERT_TRUE(keeper_->_asked.wait());
  keeper_->_reply(YES);
  [keeper_->_connection invalidate];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_TRUE(client.interrupted.wait());
  EXPECT_EQ(outcome.replies, 1u);
  EXPECT_EQ(outcome.errors, 0u);
}

TEST_F(XPCServerRaces, AReplyJustAfterTheInvalidationIsLost) {
  Outcome outcome;
  Client client(newConnection());
  [client.proxy(&outcome) hangWithReply:outcome.onFlag()];
  // 1. The request waits for its reply. 2. The connection is invalidated, and 3. the reply given.
  ASSERT_TRUE(keeper_->_asked.wait());
  [keeper_->_connection invalidate];
  keeper_->_reply(YES);
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_TRUE(client.interrupted.wait());
  EXPECT_EQ(outcome.replies, 0u);
  EXPECT_EQ(outcome.errors, 1u);
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
}

namespace {

/// What holds the queue of a connection when the process ends, and whether it goes on meanwhile.
using UnderWay = std::tuple<const char *, bool>;

class XPCExit : public XPCServerRaces, public ::testing::WithParamInterface<UnderWay> {
 protected:
  /// Ends the process with 3.
  [[noreturn]] void exitWhile(const std::string &what, bool goesOn) {
    // No destructor of the fixture runs.
    static const std::string folder = directory_.path();
    std::atexit([] { std::filesystem::remove_all(folder); });
    // Neither is given up again.
    static Hold *hold = new Hold;
    NSXPCConnection *connection = [newConnection() retain];
    connection.remoteObjectInterface =
        [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
    if (what == "an interruption" || what == "an invalidation") {
      void (^handler)(void) = ^{
        hold->pass();
      };
      what == "an interruption" ? connection.interruptionHandler = handler
                                : connection.invalidationHandler = handler;
    }
    [connection resume];
    [[connection remoteObjectProxy] hangWithReply:^(BOOL) {
      hold->pass();
    }];
    if (!keeper_->_asked.wait()) {
      std::exit(4);
    }
    if (what == "an interruption") {
      [keeper_->_connection invalidate];
    } else if (what == "an invalidation") {
      [connection invalidate];
    } else {
      keeper_->_reply(YES);
    }
    if (!hold->isReached()) {
      std::exit(4);
    }
    if (what == "the last release") {
      [connection release];
    } else if (what == "an invalidation behind a reply") {
      [connection invalidate];
    }
    if (goesOn) {
      std::atexit([] { hold->end(); });
    }
    std::exit(3);
  }
};

}  // namespace

TEST_P(XPCExit, NothingHappensToTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto [what, goesOn] = GetParam();
  SCOPED_TRACE(what);
  EXPECT_EXIT(exitWhile(what, goesOn), testing::ExitedWithCode(3), testing::Eq(""));
}

INSTANTIATE_TEST_SUITE_P(
    While, XPCExit,
    testing::Combine(testing::Values("a reply", "an interruption", "an invalidation",
                                     "an invalidation behind a reply", "the last release"),
                     testing::Bool()));
