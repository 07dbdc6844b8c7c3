//
// The client as native code calls it, with a real agent process or none.
//

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <memory>

#include "agent_process.h"
#import "client/AFXConsentFlow.h"
#import "client/Pellmar.h"

namespace {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

class Client : public testing::Test {
 protected:
  void SetUp() override { pool_ = [[NSAutoreleasePool alloc] init]; }

  void TearDown() override {
    // The connection to this test's agent must be gone before the next one's is asked for.
    agent_.stop();
    for (int i = 0; i < 50 && AFXGetPreviousCustomerChoice() != AFXConsentStatusUnknown; ++i) {
      usleep(20'000);
    }
    [pool_ release];
  }

  struct Outcome {
    int calls = 0;
    NSString *code = nil;
    NSError *error = nil;
  };

  /// Requests a code and waits for the completion, and a little longer for a second one.
  static Outcome requestCode(NSArray *scopes = @[ PLVendorAuthScopeApplicationAccess ]) {
    __block std::atomic<int> *calls = new std::atomic<int>(0);
    __block NSString *code = nil;
    __block NSError *error = nil;
    dispatch_semaphore_t done = dispatch_semaphore_create(0);
    PLRequestAuthorizationCode(@"client-1", scopes, ^(NSString *aCode, NSError *anError) {
      code = [aCode copy];
      error = [anError retain];
      ++*calls;
      dispatch_semaphore_signal(done);
    });
    dispatch_semaphore_wait(done, dispatch_time(DISPATCH_TIME_NOW, 10 * (int64_t)NSEC_PER_SEC));
    usleep(50'000);
    Outcome outcome;
    outcome.calls = calls->load();
    outcome.code = [code autorelease];
    outcome.error = [error autorelease];
    delete calls;
    dispatch_release(done);
    return outcome;
  }

  AgentProcess agent_;

 private:
  NSAutoreleasePool *pool_ = nil;
};

}  // namespace

TEST(Constants, HaveTheTextsThatTheAgentKnows) {
  EXPECT_STREQ(AFXProvisioningServiceName.UTF8String, "com.pellmar.ProvisioningService");
  EXPECT_STREQ(AFXProvisioningServiceURLsToOpenByRecoveryOptionIndexErrorKey.UTF8String,
               "urls to open by recovery option index");
  EXPECT_STREQ(AFXProvisioningServiceOmitPresentationErrorKey.UTF8String, "omit presentation");
  EXPECT_STREQ(AFXProvisioningDebugNotificationName.UTF8String,
               "com.pellmar.debug-log-notification");
  EXPECT_STREQ(AFXProvisioningDebugMessageKey.UTF8String, "com.pellmar.debug-log-message");
  EXPECT_STREQ(AFXProvisioningDebugAppNameKey.UTF8String, "com.pellmar.debug-log-app-name");
  EXPECT_STREQ(PLVendorAuthScopeApplicationAccess.UTF8String, "application.access");
  EXPECT_STREQ([__PLV UTF8String], "__plv__" AFX_VERSION);
}

TEST_F(Client, CanShowReleaseNotesWithoutAskingAnybody) {
  EXPECT_EQ(PLCanShowReleaseNotesWindow(), YES);
}

TEST_F(Client, GetsTheCodeThatTheAgentGives) {
  ASSERT_TRUE(agent_.start({"--auth-code", "abc-123"}));
  const Outcome outcome = requestCode();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_STREQ(outcome.code.UTF8String, "abc-123");
  EXPECT_EQ(outcome.error, nil);
}

TEST_F(Client, GetsTheErrorThatTheAgentGives) {
  ASSERT_TRUE(agent_.start(
      {"--error", "provideAuthCodeWithClientID:scope:callback:=com.example:7:No, not now"}));
  const Outcome outcome = requestCode();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.code, nil);
  EXPECT_STREQ(outcome.error.domain.UTF8String, "com.example");
  EXPECT_EQ(outcome.error.code, 7);
  EXPECT_STREQ(outcome.error.localizedDescription.UTF8String, "No, not now");
}

TEST_F(Client, IsToldThatThereIsNoAgentToGiveACode) {
  const auto start = Clock::now();
  const Outcome outcome = requestCode();
  // Not after the 8 s of the first check of an agent that is there.
  EXPECT_LT(MillisecondsSince(start), 7500.0);
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.code, nil);
  EXPECT_TRUE([outcome.error.domain isEqualToString:NSCocoaErrorDomain]);
  EXPECT_EQ(outcome.error.code, NSXPCConnectionInvalid);
  EXPECT_GT(outcome.error.localizedDescription.length, 0u);
}

TEST_F(Client, IsToldThatTheAgentDiedOverTheRequestForACode) {
  ASSERT_TRUE(agent_.start({"--die-on", "provideAuthCodeWithClientID:scope:callback:"}));
  const Outcome outcome = requestCode();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.code, nil);
  EXPECT_TRUE([outcome.error.domain isEqualToString:NSCocoaErrorDomain]);
  EXPECT_TRUE(outcome.error.code == NSXPCConnectionInterrupted ||
              outcome.error.code == NSXPCConnectionInvalid);
}

TEST_F(Client, TakesAReplyOfTheWrongClassForAnError) {
  ASSERT_TRUE(agent_.start({"--wrong-type", "provideAuthCodeWithClientID:scope:callback:"}));
  const Outcome outcome = requestCode();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.code, nil);
  EXPECT_TRUE([outcome.error.domain isEqualToString:NSCocoaErrorDomain]);
  EXPECT_EQ(outcome.error.code, NSXPCConnectionReplyInvalid);
}

TEST_F(Client, IsAnsweredOnceByAnAgentThatRepliesTwice) {
  ASSERT_TRUE(agent_.start({"--twice", "provideAuthCodeWithClientID:scope:callback:"}));
  EXPECT_EQ(requestCode().calls, 1);
}

TEST_F(Client, MayCallEverythingInsideTheCompletionOfACode) {
  ASSERT_TRUE(agent_.start({"--should-ask", "no"}));
  dispatch_semaphore_t done = dispatch_semaphore_create(0);
  __block PLEmailSharingAnswer known = PLEmailSharingAnswerUnknown;
  __block PLEmailSharingAnswer told = PLEmailSharingAnswerUnknown;
  PLRequestAuthorizationCode(@"client-1", @[], ^(NSString *, NSError *) {
    PLReportUsageEvent(@"event", nil);
    PLShowReleaseNotesWindow();
    known = PLGetLastUserEmailSharingResponse();
    PLAskUserToShareEmail(^(PLEmailSharingAnswer answer) {
      told = answer;
    });
    PLRequestAuthorizationCode(@"client-1", @[], ^(NSString *, NSError *) {
      dispatch_semaphore_signal(done);
    });
  });
  ASSERT_EQ(
      dispatch_semaphore_wait(done, dispatch_time(DISPATCH_TIME_NOW, 60 * (int64_t)NSEC_PER_SEC)),
      0);
  EXPECT_EQ(known, PLEmailSharingAnswerGiven);
  EXPECT_EQ(told, PLEmailSharingAnswerGiven);
  dispatch_release(done);
}

TEST_F(Client, IsToldThatARequestCannotBeSent) {
  ASSERT_TRUE(agent_.start({}));
  const Outcome outcome = requestCode(@[ [[[NSObject alloc] init] autorelease] ]);
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.code, nil);
  EXPECT_NE(outcome.error, nil);
}

TEST_F(Client, DropsAnEventThatCannotBeSent) {
  ASSERT_TRUE(agent_.start({"--should-ask", "no"}));
  PLReportUsageEvent(@"event",
                     [NSDictionary dictionaryWithObject:[[[NSObject alloc] init] autorelease]
                                                 forKey:@"key"]);
  PLReportUsageEvent(@"event", [NSDictionary dictionaryWithObject:@1 forKey:@"key"]);
  EXPECT_EQ(PLGetLastUserEmailSharingResponse(), PLEmailSharingAnswerGiven);
}

TEST_F(Client, HasNoStatusWithoutAnAgentAndAsksNobody) {
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0x7FFFFFFFFFFFFFFFu);
  EXPECT_EQ(PLGetLastUserEmailSharingResponse(), PLEmailSharingAnswerUnknown);
  __block AFXConsentChoice status = 0;
  EXPECT_EQ(AFXAskCustomerPermissions(^(AFXConsentChoice given) {
              status = given;
            }),
            NO);
  EXPECT_EQ(status, 0x7FFFFFFFFFFFFFFFu);
  EXPECT_EQ(AFXAskCustomerPermissions(nil), NO);
  EXPECT_EQ(PLAskUserToShareEmail(nil), NO);
}

TEST_F(Client, HasAnAnswerOnRecordWhenTheAgentSaysSo) {
  ASSERT_TRUE(agent_.start({"--should-ask", "no"}));
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), AFXConsentStatusAnswered);
  __block PLEmailSharingAnswer answer = PLEmailSharingAnswerUnknown;
  EXPECT_EQ(PLAskUserToShareEmail(^(PLEmailSharingAnswer given) {
              answer = given;
            }),
            NO);
  EXPECT_EQ(answer, PLEmailSharingAnswerGiven);
}

TEST_F(Client, TakesNoLateReplyForTheNextQuestion) {
  ASSERT_TRUE(agent_.start({"--should-ask", "no", "--reply-delay", "3500"}));
  // The first check alone takes longer than a caller waits.
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), AFXConsentStatusUnknown);
  // The late replies are in by then, to the check after 3.5 s and to the question after 7. The
  // second caller waits for its own, for which the two seconds are too short again.
  usleep(6'500'000);
  const auto start = Clock::now();
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), AFXConsentStatusUnknown);
  EXPECT_GE(MillisecondsSince(start), 1900.0);
}

TEST_F(Client, IsAskedFromManyThreadsAtOnce) {
  ASSERT_TRUE(agent_.start({"--should-ask", "no"}));
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), AFXConsentStatusAnswered);
  dispatch_group_t group = dispatch_group_create();
  dispatch_queue_t queue = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
  for (int i = 0; i < 8; ++i) {
    dispatch_group_async(group, queue, ^{
      for (int k = 0; k < 50; ++k) {
        PLReportUsageEvent(@"event", nil);
        PLGetLastUserEmailSharingResponse();
      }
    });
  }
  EXPECT_EQ(
      dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, 60 * (int64_t)NSEC_PER_SEC)), 0);
  dispatch_release(group);
}

TEST_F(Client, ReportsFromManyThreadsWhileTheAgentComesAndGoes) {
  auto isDone = std::make_shared<std::atomic<bool>>(false);
  dispatch_group_t group = dispatch_group_create();
  dispatch_queue_t queue = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
  for (int i = 0; i < 4; ++i) {
    dispatch_group_async(group, queue, ^{
      while (!*isDone) {
        @autoreleasepool {
          PLReportUsageEvent(@"event", nil);
        }
        // Slowly: nobody reads what the agent prints of them.
        usleep(5'000);
      }
    });
  }
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(agent_.start({"--should-ask", "no"}));
    // The connection to the one before may only now be found ended.
    PLEmailSharingAnswer answer = PLEmailSharingAnswerUnknown;
    for (int k = 0; k < 50 && answer != PLEmailSharingAnswerGiven; ++k) {
      usleep(20'000);
      answer = PLGetLastUserEmailSharingResponse();
    }
    EXPECT_EQ(answer, PLEmailSharingAnswerGiven);
    agent_.stop();
    usleep(50'000);
  }
  *isDone = true;
  EXPECT_EQ(
      dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, 60 * (int64_t)NSEC_PER_SEC)), 0);
  dispatch_release(group);
}
