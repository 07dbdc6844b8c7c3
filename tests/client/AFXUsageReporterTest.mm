//
// The reporter of usage events step by step, over connections that do what the test says, with the
// time in the test's hand.
//

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#import "client/AFXUsageReporter.h"
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
