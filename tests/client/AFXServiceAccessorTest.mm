//
// The accessor step by step, over connections that do what the test says, with its timer in the
// test's hand.
//

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#import "client/AFXServiceAccessor.h"
#import "client/Pellmar.h"
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

/// The timers that were set, instead of those of the system, and a clock that tests set.
std::vector<Timer> sTimers;
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
