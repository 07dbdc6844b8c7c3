//
// The accessor step by step, over connections that do what the test says, with its timer in the
// test's hand.
//

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#import "client/AFXServiceAccessor.h"
#import "client/Pellmar.h"
#include "held_queue.h"
#include "scripted_connection.h"

@interface AFXServiceAccessor (Private)
- (instancetype)initAccessor;
@end

namespace {

using Calls = std::vector<std::string>;

struct Timer {
  dispatch_time_t when;
  dispatch_block_t block;
};

/// The timers that were set, instead of those of the system, and a clock that tests set. Never freed:
/// tests end the process among its threads.
std::vector<Timer> &sTimers = *new std::vector<Timer>;
dispatch_time_t sNow = 1'000'000;

class ServiceAccessor : public testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    accessor_ = [[AFXServiceAccessor alloc] initAccessor];
    sTimers.clear();
  }

  void TearDown() override {
    for (const Timer &timer : sTimers) {
      [timer.block release];
    }
    sTimers.clear();
    [accessor_ release];
    [pool_ release];
  }

  /// Asks for the service; records what the handler gets.
  void access() {
    const std::string number = std::to_string(++accesses_);
    Calls *got = &got_;
    [accessor_ accessService:^(id<AFXProvisioningService> service) {
      got->push_back(number + (service ? " has a proxy" : " has none"));
    }];
  }

  /// The same, and holds whoever calls the handler.
  void accessAndHold(Gate *gate) {
    const std::string number = std::to_string(++accesses_);
    Calls *got = &got_;
    [accessor_ accessService:^(id<AFXProvisioningService> service) {
      got->push_back(number + (service ? " has a proxy" : " has none"));
      gate->pass();
    }];
  }

  /// Asks for the service and sends it a request.
  void fetch() {
    [accessor_ accessService:^(id<AFXProvisioningService> service) {
      [service fetchAskingPermissionStatus:^(BOOL, NSString *){
      }];
    }];
  }

  /// What handlers got since the last call.
  Calls got() {
    Calls calls;
    calls.swap(got_);
    return calls;
  }

  ScriptedConnections connections_;
  AFXServiceAccessor *accessor_ = nil;

 private:
  NSAutoreleasePool *pool_ = nil;
  int accesses_ = 0;
  Calls got_;
};

}  // namespace

// Interposed: this program calls these instead of the system's.

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
  EXPECT_EQ(when, DISPATCH_TIME_NOW);
  return sNow + static_cast<dispatch_time_t>(delta);
}

void dispatch_after(dispatch_time_t when, dispatch_queue_t, dispatch_block_t block) {
  sTimers.push_back({when, [block copy]});
}

TEST_F(ServiceAccessor, SetsAConnectionUpBeforeItResumesAndChecksItOnce) {
  access();
  EXPECT_EQ(connections_.taken(),
            (Calls{"connect 1 to com.pellmar.ProvisioningService", "resume 1", "check 1"}));
  EXPECT_EQ(got(), Calls{});
  access();
  EXPECT_EQ(connections_.taken(), Calls{});
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), (Calls{"1 has a proxy", "2 has a proxy"}));
  access();
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
  NSString *protocol = NSStringFromProtocol(connections_.last().remoteObjectInterface.protocol);
  EXPECT_STREQ(protocol.UTF8String, "AFXProvisioningService");
}

TEST_F(ServiceAccessor, ChecksTheAgentBehindEveryRequestOnce) {
  access();
  [connections_.last() replyToCheck:YES];
  // Behind the one that waited.
  EXPECT_EQ(connections_.taken(), (Calls{"connect 1 to com.pellmar.ProvisioningService", "resume 1",
                                         "check 1", "check 1"}));
  fetch();
  fetch();
  EXPECT_EQ(connections_.taken(), (Calls{"fetch on 1", "fetch on 1"}));
  // The check before them says nothing of these two.
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(connections_.taken(), Calls{"check 1"});
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(connections_.taken(), Calls{});
  fetch();
  EXPECT_EQ(connections_.taken(), (Calls{"fetch on 1", "check 1"}));
  // Nobody waits for those, so nothing has to end the waiting.
  EXPECT_EQ(sTimers.size(), 1u);
}

TEST_F(ServiceAccessor, FailsAtOnceWhileACheckIsUnansweredForTwoSeconds) {
  access();
  [connections_.last() replyToCheck:YES];
  [connections_.last() replyToCheck:YES];
  access();
  got();
  connections_.taken();
  sNow += 1'999'999'999;
  access();
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
  sNow += 1;
  access();
  access();
  EXPECT_EQ(got(), (Calls{"4 has none", "5 has none"}));
  EXPECT_EQ(connections_.taken(), Calls{});
  // It answers after all, and is there again.
  [connections_.last() replyToCheck:YES];
  access();
  EXPECT_EQ(got(), Calls{"6 has a proxy"});
  EXPECT_EQ(connections_.made().count, 1u);
}

// Whoever has waited two seconds for a request was the one to wait: the check behind it times out
// with it, although it could only be sent later.

TEST_F(ServiceAccessor, FailsAtOnceAfterARequestThatWaitedForTheFirstCheck) {
  access();
  sNow += 500'000'000;
  [connections_.last() replyToCheck:YES];
  sNow += 1'499'999'999;
  access();
  EXPECT_EQ(got(), (Calls{"1 has a proxy", "2 has a proxy"}));
  sNow += 1;
  access();
  EXPECT_EQ(got(), Calls{"3 has none"});
}

TEST_F(ServiceAccessor, FailsAtOnceAfterARequestBehindACheckThatWasAnswered) {
  access();
  [connections_.last() replyToCheck:YES];
  [connections_.last() replyToCheck:YES];
  access();
  sNow += 100'000'000;
  access();
  sNow += 100'000'000;
  access();
  [connections_.last() replyToCheck:YES];
  sNow += 1'899'999'999;
  access();
  EXPECT_EQ(got(), (Calls{"1 has a proxy", "2 has a proxy", "3 has a proxy", "4 has a proxy",
                          "5 has a proxy"}));
  sNow += 1;
  access();
  EXPECT_EQ(got(), Calls{"6 has none"});
}

TEST_F(ServiceAccessor, GivesAnAgentThatWasHeardLateItsTwoSeconds) {
  access();
  sNow += 3'000'000'000;
  [connections_.last() replyToCheck:YES];
  sNow += 1'999'999'999;
  access();
  EXPECT_EQ(got(), (Calls{"1 has a proxy", "2 has a proxy"}));
  sNow += 1;
  access();
  EXPECT_EQ(got(), Calls{"3 has none"});
}

TEST_F(ServiceAccessor, ForgetsTheRequestsOfAConnectionThatWentAway) {
  access();
  [connections_.last() fail];
  sNow += 1'000'000'000;
  access();
  [connections_.last() replyToCheck:YES];
  sNow += 1'999'999'999;
  access();
  EXPECT_EQ(got(), (Calls{"1 has none", "2 has a proxy", "3 has a proxy"}));
}

TEST_F(ServiceAccessor, KeepsThoseWaitingForTheFirstCheckWhoCameInTime) {
  access();
  sNow += 2'000'000'000;
  access();
  EXPECT_EQ(got(), Calls{"2 has none"});
  sNow += 3'000'000'000;
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"1 has a proxy"});
  access();
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
}

TEST_F(ServiceAccessor, DoesNotWaitAgainForAnAgentThatHadItsEightSeconds) {
  access();
  sNow += 8'000'000'000;
  sTimers[0].block();
  got();
  connections_.taken();
  access();
  EXPECT_EQ(got(), Calls{"2 has none"});
  EXPECT_EQ(connections_.taken(),
            (Calls{"connect 2 to com.pellmar.ProvisioningService", "resume 2", "check 2"}));
  [connections_.last() replyToCheck:YES];
  access();
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
}

TEST_F(ServiceAccessor, WaitsForTheSuccessorOfAnAgentThatHung) {
  access();
  [connections_.last() replyToCheck:YES];
  sNow += 2'000'000'000;
  access();
  EXPECT_EQ(got(), (Calls{"1 has a proxy", "2 has none"}));
  connections_.last().interruptionHandler();
  access();
  EXPECT_EQ(got(), Calls{});
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
}

TEST_F(ServiceAccessor, FailsWhenTheAgentIsNotReady) {
  access();
  [connections_.last() replyToCheck:NO];
  EXPECT_EQ(got(), Calls{"1 has none"});
  connections_.taken();
  access();
  EXPECT_EQ(connections_.taken(),
            (Calls{"connect 2 to com.pellmar.ProvisioningService", "resume 2", "check 2"}));
}

TEST_F(ServiceAccessor, FailsWhenTheCheckFails) {
  access();
  access();
  connections_.taken();
  [connections_.last() fail];
  EXPECT_EQ(got(), (Calls{"1 has none", "2 has none"}));
  EXPECT_EQ(connections_.taken(), Calls{"invalidate 1"});
}

TEST_F(ServiceAccessor, OpensAnotherConnectionAfterOneWentAway) {
  for (BOOL isInvalidation : {NO, YES}) {
    access();
    [connections_.last() replyToCheck:YES];
    ScriptedConnection *connection = connections_.last();
    connections_.taken();
    isInvalidation ? connection.invalidationHandler() : connection.interruptionHandler();
    const std::string number = std::to_string(connection->_number);
    EXPECT_EQ(connections_.taken(), Calls{"invalidate " + number});
    // What comes late of the old one changes nothing.
    connection.interruptionHandler();
    connection.invalidationHandler();
    [connection fail];
    EXPECT_EQ(connections_.taken(), Calls{});
  }
  access();
  EXPECT_EQ(connections_.made().count, 3u);
}

TEST_F(ServiceAccessor, GivesAnAgentEightSecondsToAnswerTheCheck) {
  access();
  access();
  ASSERT_EQ(sTimers.size(), 1u);
  EXPECT_EQ(sTimers[0].when, sNow + 8'000'000'000);
  connections_.taken();
  sTimers[0].block();
  EXPECT_EQ(got(), (Calls{"1 has none", "2 has none"}));
  EXPECT_EQ(connections_.taken(), Calls{"invalidate 1"});
  // The reply that comes after all finds nobody.
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), Calls{});
}

TEST_F(ServiceAccessor, KeepsAConnectionThatWasCheckedInTime) {
  access();
  [connections_.last() replyToCheck:YES];
  got();
  connections_.taken();
  sTimers[0].block();
  access();
  EXPECT_EQ(got(), Calls{"2 has a proxy"});
  EXPECT_EQ(connections_.taken(), Calls{});
}

TEST_F(ServiceAccessor, DoesNotTakeALaterCheckForTheOneThatItTimes) {
  access();
  [connections_.last() fail];
  access();
  got();
  // The timer of the first, while the second is under way.
  sTimers[0].block();
  EXPECT_EQ(got(), Calls{});
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"2 has a proxy"});
}

TEST_F(ServiceAccessor, TellsOfAMessageThatFails) {
  access();
  [connections_.last() replyToCheck:YES];
  __block int errors = 0;
  [accessor_
      accessService:^(id<AFXProvisioningService> service) {
        [service fetchAskingPermissionStatus:^(BOOL, NSString *){
        }];
      }
      errorHandler:^(NSError *error) {
        EXPECT_EQ(error.code, 4097);
        ++errors;
      }];
  [connections_.last() fail];
  EXPECT_EQ(errors, 1);
}

#pragma mark - Races

// Each pair that can meet, in both orders. Replies, failures and the end of a connection come in on
// its queue, timers on a global one, callers on any thread.

TEST_F(ServiceAccessor, ACheckThatIsAnsweredBeforeTheEndAdmitsThoseWhoWait) {
  access();
  access();
  ScriptedConnection *connection = connections_.last();
  // 1. The connection's queue is held.
  HeldQueue queue;
  // 2. The reply to the check comes in, and behind it 3. the end of the connection.
  queue.add([=] { [connection replyToCheck:YES]; });
  queue.add([=] { connection.interruptionHandler(); });
  // 4. The queue goes on.
  queue.finish();
  EXPECT_EQ(got(), (Calls{"1 has a proxy", "2 has a proxy"}));
  // 5. The check behind the two fails with the connection, and harms none that comes after it.
  access();
  connections_.taken();
  [connection fail];
  EXPECT_EQ(connections_.taken(), Calls{});
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
}

TEST_F(ServiceAccessor, ACheckThatIsAnsweredAfterTheEndAdmitsNobodyToTheNextConnection) {
  access();
  ScriptedConnection *connection = connections_.last();
  Gate between;
  // 1. The connection's queue is held.
  HeldQueue queue;
  // 2. Its end comes in, and behind it 3. the reply to the check.
  queue.add([=] { connection.invalidationHandler(); });
  queue.add([&] { between.pass(); });
  queue.add([=] { [connection replyToCheck:YES]; });
  // 4. The queue goes on as far as the end.
  queue.go();
  ASSERT_TRUE(between.isReached());
  EXPECT_EQ(got(), Calls{"1 has none"});
  // 5. The next caller waits for the check of the next connection.
  access();
  connections_.taken();
  // 6. The queue goes on with the late reply.
  between.open();
  queue.finish();
  EXPECT_EQ(got(), Calls{});
  EXPECT_EQ(connections_.taken(), Calls{});
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"2 has a proxy"});
}

TEST_F(ServiceAccessor, ADropLeavesAnAdmissionUnderWayAlone) {
  Gate inHandler;
  accessAndHold(&inHandler);
  access();
  ScriptedConnection *connection = connections_.last();
  HeldQueue queue;
  // 1. The check is answered; the first of the two who wait holds the queue in its handler.
  queue.add([=] { [connection replyToCheck:YES]; });
  queue.go();
  ASSERT_TRUE(inHandler.isReached());
  // 2. The connection is dropped elsewhere.
  connection.invalidationHandler();
  // 3. The next caller waits for the check of the next connection.
  access();
  connections_.taken();
  // 4. The first handler goes on: the second one gets its proxy too, and nobody else. What has been
  //    dropped is not checked behind them.
  inHandler.open();
  queue.finish();
  EXPECT_EQ(got(), (Calls{"1 has a proxy", "2 has a proxy"}));
  EXPECT_EQ(connections_.taken(), Calls{});
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
}

TEST_F(ServiceAccessor, AnAdmissionLeavesADropUnderWayAlone) {
  Gate inHandler;
  accessAndHold(&inHandler);
  access();
  ScriptedConnection *connection = connections_.last();
  connections_.taken();
  HeldQueue queue;
  // 1. The connection ends; the first of the two who wait holds the queue in its handler.
  queue.add([=] { connection.interruptionHandler(); });
  queue.go();
  ASSERT_TRUE(inHandler.isReached());
  // 2. The reply to the check comes in elsewhere, and admits nobody.
  [connection replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"1 has none"});
  // 3. The next caller waits for the check of the next connection.
  access();
  EXPECT_EQ(connections_.taken(),
            (Calls{"connect 2 to com.pellmar.ProvisioningService", "resume 2", "check 2"}));
  // 4. The first handler goes on: the second one is told, and nobody else. The connection that has
  //    ended is invalidated, and not the next one.
  inHandler.open();
  queue.finish();
  EXPECT_EQ(got(), Calls{"2 has none"});
  EXPECT_EQ(connections_.taken(), Calls{"invalidate 1"});
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
}

TEST_F(ServiceAccessor, TheTimeoutOfAFirstCheckLeavesAnAdmissionUnderWayAlone) {
  Gate inHandler;
  accessAndHold(&inHandler);
  access();
  ScriptedConnection *connection = connections_.last();
  HeldQueue queue;
  // 1. The check is answered; the first of the two who wait holds the queue in its handler.
  queue.add([=] { [connection replyToCheck:YES]; });
  queue.go();
  ASSERT_TRUE(inHandler.isReached());
  // 2. The eight seconds are over.
  sNow += 8'000'000'000;
  sTimers[0].block();
  connections_.taken();
  // 3. The first handler goes on; the connection stays in use, and is checked behind the two.
  inHandler.open();
  queue.finish();
  EXPECT_EQ(got(), (Calls{"1 has a proxy", "2 has a proxy"}));
  EXPECT_EQ(connections_.taken(), Calls{"check 1"});
  access();
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
}

TEST_F(ServiceAccessor, AReplyLeavesTheTimeoutOfAFirstCheckUnderWayAlone) {
  Gate inHandler;
  accessAndHold(&inHandler);
  access();
  ScriptedConnection *connection = connections_.last();
  HeldQueue timers;
  // 1. The eight seconds are over; the first of the two who wait holds the timer in its handler.
  sNow += 8'000'000'000;
  timers.add([] { sTimers[0].block(); });
  timers.go();
  ASSERT_TRUE(inHandler.isReached());
  connections_.taken();
  // 2. The reply comes in after all.
  [connection replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"1 has none"});
  EXPECT_EQ(connections_.taken(), Calls{});
  // 3. The first handler goes on.
  inHandler.open();
  timers.finish();
  EXPECT_EQ(got(), Calls{"2 has none"});
  EXPECT_EQ(connections_.taken(), Calls{"invalidate 1"});
  // 4. The agent of that connection counts as hung: nobody waits for the next one's check.
  access();
  EXPECT_EQ(got(), Calls{"3 has none"});
}

TEST_F(ServiceAccessor, AReplyEndsTheTimeoutOfACheckForAllButThoseWhoWereToldOfIt) {
  access();
  ScriptedConnection *connection = connections_.last();
  [connection replyToCheck:YES];
  got();
  // 1. The two seconds of the check behind the first request are over; a caller is told so, and is
  //    held in its handler.
  sNow += 2'000'000'000;
  Gate inHandler;
  HeldQueue caller;
  caller.add([&] { accessAndHold(&inHandler); });
  caller.go();
  ASSERT_TRUE(inHandler.isReached());
  EXPECT_EQ(got(), Calls{"2 has none"});
  connections_.taken();
  // 2. The reply comes in: the next caller is served, and the agent checked behind it.
  [connection replyToCheck:YES];
  access();
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
  EXPECT_EQ(connections_.taken(), Calls{"check 1"});
  // 3. The first caller goes on; that check is still outstanding.
  inHandler.open();
  caller.finish();
  EXPECT_EQ(connections_.taken(), Calls{});
  // 4. In the other order: the reply, then the end of the two seconds that it had.
  while (connection->_checks.count > 0) {
    [connection replyToCheck:YES];
  }
  sNow += 2'000'000'000;
  access();
  EXPECT_EQ(got(), Calls{"4 has a proxy"});
}

TEST_F(ServiceAccessor, ACallerUnderWayChecksNoConnectionThatIsDroppedMeanwhile) {
  access();
  ScriptedConnection *connection = connections_.last();
  [connection replyToCheck:YES];
  [connection replyToCheck:YES];
  got();
  connections_.taken();
  // 1. A caller has its proxy, and is held in its handler.
  Gate inHandler;
  HeldQueue caller;
  caller.add([&] { accessAndHold(&inHandler); });
  caller.go();
  ASSERT_TRUE(inHandler.isReached());
  // 2. The connection ends.
  connection.interruptionHandler();
  EXPECT_EQ(connections_.taken(), Calls{"invalidate 1"});
  // 3. The caller goes on.
  inHandler.open();
  caller.finish();
  EXPECT_EQ(connections_.taken(), Calls{});
  // 4. The next caller's connection is checked, as if nothing had been.
  access();
  EXPECT_EQ(connections_.taken(),
            (Calls{"connect 2 to com.pellmar.ProvisioningService", "resume 2", "check 2"}));
}

TEST_F(ServiceAccessor, ADropOutlivesTheCheckThatACallerMadeBeforeIt) {
  access();
  ScriptedConnection *connection = connections_.last();
  [connection replyToCheck:YES];
  [connection replyToCheck:YES];
  // 1. A caller has gone its way, with a check behind it.
  access();
  // 2. The connection ends. 3. The next caller asks. 4. The check behind the first one fails.
  connection.interruptionHandler();
  access();
  got();
  connections_.taken();
  HeldQueue queue;
  queue.add([=] { [connection fail]; });
  queue.finish();
  EXPECT_EQ(connections_.taken(), Calls{});
  [connections_.last() replyToCheck:YES];
  EXPECT_EQ(got(), Calls{"3 has a proxy"});
}

TEST_F(ServiceAccessor, AConnectionLivesAsLongAsAnAdmissionOnItIsUnderWay) {
  Gate inHandler;
  HeldQueue queue;
  @autoreleasepool {
    accessAndHold(&inHandler);
    access();
    ScriptedConnection *connection = connections_.last();
    // 1. The check is answered; the first of the two who wait holds the queue in its handler.
    queue.add([=] { [connection replyToCheck:YES]; });
    queue.go();
    ASSERT_TRUE(inHandler.isReached());
    connections_.taken();
    // 2. The connection is dropped, and nobody else has it.
    connection.invalidationHandler();
    connections_.forget();
  }
  EXPECT_EQ(connections_.taken(), Calls{"invalidate 1"});
  // 3. The first handler goes on; the second one gets a proxy of the connection.
  inHandler.open();
  queue.finish();
  EXPECT_EQ(got(), (Calls{"1 has a proxy", "2 has a proxy"}));
  EXPECT_EQ(connections_.taken(), Calls{"free 1"});
}

TEST_F(ServiceAccessor, AConnectionLivesAsLongAsACallerIsUnderWay) {
  Gate inHandler;
  HeldQueue caller;
  @autoreleasepool {
    access();
    ScriptedConnection *connection = connections_.last();
    [connection replyToCheck:YES];
    [connection replyToCheck:YES];
    // 1. A caller has its proxy, and is held in its handler.
    caller.add([&] { accessAndHold(&inHandler); });
    caller.go();
    ASSERT_TRUE(inHandler.isReached());
    connections_.taken();
    // 2. The connection is dropped, and nobody else has it.
    connection.interruptionHandler();
    connections_.forget();
  }
  EXPECT_EQ(connections_.taken(), Calls{"invalidate 1"});
  // 3. The caller goes on.
  inHandler.open();
  caller.finish();
  EXPECT_EQ(connections_.taken(), Calls{"free 1"});
}

TEST_F(ServiceAccessor, TheAccessorsLastReleaseLeavesACallbackUnderWayAlone) {
  Gate inHandler;
  accessAndHold(&inHandler);
  ScriptedConnection *connection = connections_.last();
  HeldQueue queue;
  // 1. The check is answered; the one who waits holds the queue in its handler.
  queue.add([=] { [connection replyToCheck:YES]; });
  queue.go();
  ASSERT_TRUE(inHandler.isReached());
  // 2. Whoever made the accessor lets it go.
  [accessor_ release];
  accessor_ = nil;
  // 3. The handler goes on; the check behind it is answered, and the connection ends.
  inHandler.open();
  queue.add([=] { [connection replyToCheck:YES]; });
  queue.add([=] { connection.invalidationHandler(); });
  queue.finish();
  EXPECT_EQ(got(), Calls{"1 has a proxy"});
}

#pragma mark - The end of the process

namespace {

/// What is under way, and whether it goes on while the process ends.
using UnderWay = std::tuple<const char *, bool>;

class ServiceAccessorAtExit : public ServiceAccessor, public testing::WithParamInterface<UnderWay> {
 protected:
  /// Has the queue come to the gate in the middle of it.
  void begin(const std::string &what) {
    if (what == "a caller") {
      access();
      [connections_.last() replyToCheck:YES];
      queue_.add([this] { accessAndHold(&gate_); });
      return;
    }
    if (what == "what is about to come in") {
      queue_.add([this] { gate_.pass(); });
    }
    accessAndHold(&gate_);
    access();
    ScriptedConnection *connection = connections_.last();
    if (what == "a drop") {
      queue_.add([=] { connection.invalidationHandler(); });
    } else if (what == "the timeout of a first check") {
      queue_.add([] { sTimers[0].block(); });
    }
    // Alone an admission, else late.
    queue_.add([=] { [connection replyToCheck:YES]; });
    queue_.add([=] { connection.interruptionHandler(); });
    if (what == "the last release") {
      [accessor_ release];
    }
  }

  Gate gate_;
  HeldQueue queue_;
};

}  // namespace

TEST_P(ServiceAccessorAtExit, NothingHappensToTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto [what, goesOn] = GetParam();
  SCOPED_TRACE(what);
  EXPECT_EXIT(
      {
        begin(what);
        ExitWhileHeld(&queue_, &gate_, goesOn);
      },
      testing::ExitedWithCode(3), testing::Eq(""));
}

INSTANTIATE_TEST_SUITE_P(
    While, ServiceAccessorAtExit,
    testing::Combine(testing::Values("an admission", "a drop", "the timeout of a first check",
                                     "a caller", "what is about to come in", "the last release"),
                     testing::Bool()));
