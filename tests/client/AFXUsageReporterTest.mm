//
// The reporter of usage events step by step, over connections that do what the test says, with the
// time in the test's hand.
//

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#import "client/AFXUsageReporter.h"
#include "held_queue.h"
#include "scripted_connection.h"

@interface AFXUsageReporter (Private)
- (instancetype)initReporter;
@end

namespace {

using Calls = std::vector<std::string>;

dispatch_time_t sNow = 1'000'000;

class UsageReporter : public testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    reporter_ = [[AFXUsageReporter alloc] initReporter];
  }

  void TearDown() override {
    [reporter_ release];
    [pool_ release];
  }

  void report(NSString *event) { [reporter_ reportUsageEvent:event eventInfo:nil]; }

  /// Reports `count` events, named by numbers from `first` on.
  void report(int first, int count) {
    for (int i = first; i < first + count; ++i) {
      @autoreleasepool {
        report([NSString stringWithFormat:@"%d", i]);
      }
    }
  }

  /// Holds whoever sends the next event over the connection in use, in the middle of that.
  void holdNextEvent(Gate *gate) {
    ScriptedConnection *connection = connections_.last();
    connection->_onEvent = [^{
      gate->pass();
    } copy];
  }

  /// The numbers of the events that were sent since the last call, and how many checks.
  std::pair<std::vector<int>, int> sent() {
    std::vector<int> events;
    int checks = 0;
    for (const std::string &call : connections_.taken()) {
      if (call.rfind("event ", 0) == 0) {
        events.push_back(std::stoi(call.substr(6)));
      } else {
        checks += call.rfind("check ", 0) == 0;
      }
    }
    return {events, checks};
  }

  ScriptedConnections connections_;
  AFXUsageReporter *reporter_ = nil;

 private:
  NSAutoreleasePool *pool_ = nil;
};

}  // namespace

// Interposed: this program calls it instead of the system's.
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
  EXPECT_EQ(when, DISPATCH_TIME_NOW);
  return sNow + static_cast<dispatch_time_t>(delta);
}

TEST_F(UsageReporter, SendsEventsAtOnceAndInOrderOverAConnectionOfItsOwn) {
  EXPECT_EQ(connections_.made().count, 0u);
  report(@"first");
  report(@"second");
  EXPECT_EQ(connections_.taken(), (Calls{"connect 1 to com.pellmar.ProvisioningService", "resume 1",
                                         "event first on 1", "check 1", "event second on 1"}));
}

TEST_F(UsageReporter, ChecksEvery256Events) {
  report(0, 257);
  EXPECT_EQ(sent().second, 2);
  report(257, 255);
  EXPECT_EQ(sent().second, 0);
  report(512, 1);
  EXPECT_EQ(sent().second, 1);
}

TEST_F(UsageReporter, DropsTheNewestBeyond4096ThatAreNotAcknowledged) {
  report(0, 5000);
  const auto [events, checks] = sent();
  EXPECT_EQ(events.size(), 4096u);
  EXPECT_EQ(events.back(), 4095);
  EXPECT_EQ(checks, 16);
  // The agent takes the first one, and the first 257.
  [connections_.last() replyToCheck:YES];
  report(5000, 3);
  EXPECT_EQ(sent().first, std::vector<int>{5000});
  [connections_.last() replyToCheck:YES];
  report(6000, 1000);
  const auto [next, none] = sent();
  EXPECT_EQ(next.size(), 256u);
  EXPECT_EQ(next.front(), 6000);
  // It takes all, and all go through again.
  while (connections_.last()->_checks.count > 0) {
    [connections_.last() replyToCheck:YES];
  }
  report(7000, 3000);
  EXPECT_EQ(sent().first.size(), 3000u);
}

TEST_F(UsageReporter, TakesAnyReplyToACheckAsAnAcknowledgement) {
  report(0, 4096);
  sent();
  [connections_.last() replyToCheck:NO];
  report(5000, 1);
  EXPECT_EQ(sent().first.size(), 1u);
}

TEST_F(UsageReporter, RetriesAMissingAgentWithAGrowingDelay) {
  for (const int64_t delay : {20, 40, 80, 160, 250, 250}) {
    SCOPED_TRACE(delay);
    report(@"1");
    EXPECT_EQ(connections_.taken().size(), 4u);
    connections_.last().invalidationHandler();
    connections_.taken();
    sNow += static_cast<dispatch_time_t>(delay * 1'000'000 - 1);
    report(@"2");
    EXPECT_EQ(connections_.taken(), Calls{});
    sNow += 1;
  }
}

TEST_F(UsageReporter, StartsAnewAfterASuccess) {
  for (int i = 0; i < 6; ++i) {
    report(@"1");
    connections_.last().invalidationHandler();
    sNow += 250'000'000;
  }
  report(@"1");
  [connections_.last() replyToCheck:YES];
  // An agent that was there is looked for again at once.
  connections_.last().interruptionHandler();
  connections_.taken();
  report(@"2");
  EXPECT_EQ(connections_.taken().back(), "check 8");
  connections_.last().invalidationHandler();
  connections_.taken();
  sNow += 19'999'999;
  report(@"3");
  EXPECT_EQ(connections_.taken(), Calls{});
  sNow += 1;
  report(@"4");
  EXPECT_EQ(connections_.taken().back(), "check 9");
}

TEST_F(UsageReporter, CountsAnewOnANewConnection) {
  report(0, 4096);
  [connections_.last() replyToCheck:YES];
  ScriptedConnection *old = connections_.last();
  old.interruptionHandler();
  sent();
  report(0, 4200);
  EXPECT_EQ(sent().first.size(), 4096u);
  EXPECT_EQ(connections_.made().count, 2u);
  // What comes late of the old one changes nothing.
  [old replyToCheck:YES];
  [old fail];
  old.invalidationHandler();
  report(0, 1);
  EXPECT_EQ(connections_.taken(), Calls{});
}

TEST_F(UsageReporter, DropsTheConnectionWhoseCheckFails) {
  report(@"1");
  connections_.taken();
  [connections_.last() fail];
  EXPECT_EQ(connections_.taken(), Calls{"invalidate 1"});
}

#pragma mark - Races

// Each pair that can meet, in both orders. Replies, failures and the end of a connection come in on
// its queue; events are reported on any thread.

TEST_F(UsageReporter, AnAcknowledgementBeforeTheEndCounts) {
  report(0, 4096);
  ScriptedConnection *connection = connections_.last();
  // 1. The connection's queue is held.
  HeldQueue queue;
  // 2. The reply to the first check comes in, and behind it 3. the end.
  queue.add([=] { [connection replyToCheck:YES]; });
  queue.add([=] { connection.interruptionHandler(); });
  // 4. The queue goes on.
  queue.finish();
  sent();
  // 5. There was an agent: the next event looks for its successor at once.
  report(5000, 4200);
  EXPECT_EQ(connections_.made().count, 2u);
  EXPECT_EQ(sent().first.size(), 4096u);
}

TEST_F(UsageReporter, AnAcknowledgementAfterTheEndCountsForNoOtherConnection) {
  report(0, 4096);
  ScriptedConnection *connection = connections_.last();
  Gate between;
  // 1. The connection's queue is held.
  HeldQueue queue;
  // 2. Its end comes in, and behind it 3. the replies to all its checks.
  queue.add([=] { connection.invalidationHandler(); });
  queue.add([&] { between.pass(); });
  queue.add([=] {
    while (connection->_checks.count > 0) {
      [connection replyToCheck:YES];
    }
  });
  // 4. The queue goes on as far as the end. As far as is known there was no agent.
  queue.go();
  ASSERT_TRUE(between.isReached());
  sent();
  report(5000, 1);
  EXPECT_EQ(connections_.made().count, 1u);
  // 5. After the delay the next connection is full of events.
  sNow += 20'000'000;
  report(5000, 5000);
  EXPECT_EQ(sent().first.size(), 4096u);
  // 6. The queue goes on with the late replies, which acknowledge none of them.
  between.open();
  queue.finish();
  report(10000, 1);
  EXPECT_EQ(sent().first.size(), 0u);
  // 7. Nor do they end the delay.
  connections_.last().invalidationHandler();
  sNow += 39'999'999;
  report(11000, 1);
  EXPECT_EQ(connections_.made().count, 2u);
}

TEST_F(UsageReporter, ADropLeavesAnEventUnderWayAlone) {
  Gate inEvent;
  HeldQueue caller;
  @autoreleasepool {
    report(0, 256);
    ScriptedConnection *connection = connections_.last();
    [connection replyToCheck:YES];
    // 1. A thread is held in the middle of sending an event, behind which there will be a check.
    holdNextEvent(&inEvent);
    caller.add([=] { report(256, 1); });
    caller.go();
    ASSERT_TRUE(inEvent.isReached());
    connections_.taken();
    // 2. The connection is dropped, and nobody else has it.
    connection.interruptionHandler();
    EXPECT_EQ(connections_.taken(), Calls{"invalidate 1"});
    connections_.forget();
  }
  // 3. The next event opens another connection.
  report(@"next");
  EXPECT_EQ(connections_.taken(), (Calls{"connect 1 to com.pellmar.ProvisioningService", "resume 1",
                                         "event next on 1", "check 1"}));
  // 4. The thread goes on: its connection goes then, and what it checks is the one in use.
  inEvent.open();
  caller.finish();
  EXPECT_EQ(connections_.taken(), (Calls{"free 1", "check 1"}));
}

TEST_F(UsageReporter, AnEventUnderWayLeavesADropAlone) {
  report(0, 256);
  ScriptedConnection *connection = connections_.last();
  [connection replyToCheck:YES];
  // 1. A thread is held in the middle of sending an event, behind which there will be a check.
  Gate inEvent;
  holdNextEvent(&inEvent);
  HeldQueue caller;
  caller.add([=] { report(256, 1); });
  caller.go();
  ASSERT_TRUE(inEvent.isReached());
  // 2. The connection is dropped.
  connection.interruptionHandler();
  connections_.taken();
  // 3. The thread goes on: there is no connection to check, and it opens none.
  inEvent.open();
  caller.finish();
  EXPECT_EQ(connections_.taken(), Calls{});
  // 4. The next event does.
  report(@"next");
  EXPECT_EQ(connections_.taken().back(), "check 2");
}

TEST_F(UsageReporter, TwoEndsOfAConnectionAreOne) {
  // In either order: the failure of the check, the end of the connection.
  for (const bool checkFirst : {true, false}) {
    SCOPED_TRACE(checkFirst);
    sNow += 250'000'000;
    report(@"event");
    ScriptedConnection *connection = connections_.last();
    Gate between;
    // 1. The connection's queue is held. 2. The one comes in, and behind it 3. the other.
    HeldQueue queue;
    queue.add([=] { checkFirst ? [connection fail] : connection.invalidationHandler(); });
    queue.add([&] { between.pass(); });
    queue.add([=] { checkFirst ? connection.invalidationHandler() : [connection fail]; });
    // 4. The queue goes on as far as the first. 5. After the delay an event opens the next one.
    queue.go();
    ASSERT_TRUE(between.isReached());
    sNow += 250'000'000;
    report(@"event");
    connections_.taken();
    // 6. The queue goes on with the second, which does not end that.
    between.open();
    queue.finish();
    EXPECT_EQ(connections_.taken(), Calls{});
    connections_.last().invalidationHandler();
    connections_.taken();
  }
}

TEST_F(UsageReporter, TheReportersLastReleaseLeavesAnEventUnderWayAlone) {
  report(@"first");
  ScriptedConnection *connection = connections_.last();
  // 1. A thread is held in the middle of sending an event.
  Gate inEvent;
  holdNextEvent(&inEvent);
  HeldQueue caller;
  caller.add([this] { report(@"second"); });
  caller.go();
  ASSERT_TRUE(inEvent.isReached());
  // 2. Whoever made the reporter lets it go; the connection's handlers have it still. 3. The thread
  //    goes on. 4. The check is answered, and the connection ends.
  [reporter_ release];
  reporter_ = nil;
  inEvent.open();
  caller.add([=] { [connection replyToCheck:YES]; });
  caller.add([=] { connection.invalidationHandler(); });
  caller.finish();
  EXPECT_EQ(connections_.taken().back(), "invalidate 1");
}

#pragma mark - The end of the process

namespace {

/// What is under way, and whether it goes on while the process ends.
using UnderWay = std::tuple<const char *, bool>;

class UsageReporterAtExit : public UsageReporter, public testing::WithParamInterface<UnderWay> {
 protected:
  /// Has the queue come to the gate in the middle of it.
  void begin(const std::string &what) {
    report(0, 256);
    ScriptedConnection *connection = connections_.last();
    holdNextEvent(&gate_);
    if (what == "an event") {
      queue_.add([this] { report(256, 1); });
    } else {
      queue_.add([this] { gate_.pass(); });
    }
    if (what == "the last release") {
      [reporter_ release];
    } else if (what == "a drop") {
      queue_.add([=] { connection.invalidationHandler(); });
    }
    // Alone an acknowledgement, else late.
    queue_.add([=] { [connection replyToCheck:YES]; });
    queue_.add([=] { connection.interruptionHandler(); });
  }

  Gate gate_;
  HeldQueue queue_;
};

}  // namespace

TEST_P(UsageReporterAtExit, NothingHappensToTheProcess) {
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

INSTANTIATE_TEST_SUITE_P(While, UsageReporterAtExit,
                         testing::Combine(testing::Values("an event", "a drop",
                                                          "an acknowledgement", "the last release"),
                                          testing::Bool()));
