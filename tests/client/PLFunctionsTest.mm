//
// The public functions towards their callers: what they hold, hand on and give back, with an
// agent's proxy that does what the test says.
//

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#import "client/AFXUsageReporter.h"
#import "client/Pellmar.h"
#include "method_swap.h"
#include "scripted_service.h"

static int sTrackedAlive;

/// A dummy argument that counts how many of its kind are alive.
@interface Tracked : NSObject
@end

@implementation Tracked

- (instancetype)init {
  self = [super init];
  ++sTrackedAlive;
  return self;
}

- (void)dealloc {
  --sTrackedAlive;
  [super dealloc];
}

- (NSString *)description {
  return @"tracked";
}

@end

namespace {

using Calls = std::vector<std::string>;

class Functions : public testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    service_ = [[ScriptedService alloc] init];
    access_ = [this](ServiceHandler handler, ServiceErrorHandler) { handler(service_); };
    sCalls.clear();
    sTrackedAlive = 0;
  }

  void TearDown() override {
    [service_ release];
    [pool_ release];
  }

  /// A completion of a code that says what it got, and on which queue.
  PLAuthorizationCodeCompletion completion() {
    return [[^(NSString *code, NSError *error) {
      std::lock_guard<std::mutex> lock(mutex_);
      outcomes_.push_back(TextOf([code description]) + " " +
                          (error ? TextOf([error description]) : "no error"));
      error_ = [error retain];
      arrived_.notify_all();
    } copy] autorelease];
  }

  /// Waits for the completion; the outcomes so far.
  Calls outcomes(size_t count = 1) {
    std::unique_lock<std::mutex> lock(mutex_);
    arrived_.wait_for(lock, std::chrono::seconds(60), [&] { return outcomes_.size() >= count; });
    [error_ autorelease];
    return outcomes_;
  }

  ScriptedAccess access_;
  ScriptedService *service_ = nil;
  NSError *error_ = nil;

 private:
  NSAutoreleasePool *pool_ = nil;
  std::mutex mutex_;
  std::condition_variable arrived_;
  Calls outcomes_;
};

/// Released by another thread as soon as the function has begun.
std::function<void()> sReleaseArguments;

void ReleasingReport(id, SEL, NSString *name, NSDictionary *info) {
  sReleaseArguments();
  sCalls.push_back("report " + TextOf([name description]) + " " + TextOf([info description]) +
                   ", alive " + std::to_string(sTrackedAlive));
}

}  // namespace

#pragma mark - Usage events

TEST_F(Functions, HandAnEventOnAndHoldItForTheCall) {
  MethodSwap swap(class_getInstanceMethod(AFXUsageReporter.class, @selector(reportUsageEvent:
                                                                                   eventInfo:)),
                  ReleasingReport);
  Tracked *name = [[Tracked alloc] init];
  Tracked *info = [[Tracked alloc] init];
  sReleaseArguments = [&] {
    [name release];
    [info release];
  };
  PLReportUsageEvent((NSString *)name, (NSDictionary *)info);
  EXPECT_EQ(TakenCalls(), Calls{"report tracked tracked, alive 2"});
  EXPECT_EQ(sTrackedAlive, 0);
  sReleaseArguments = [] {};
  PLReportUsageEvent(@"event", nil);
  EXPECT_EQ(TakenCalls(), Calls{"report event (nil), alive 0"});
}

#pragma mark - Authorization codes

TEST_F(Functions, HandTheRequestForACodeOnAndHoldItsArgumentsForTheCall) {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  Tracked *clientID = [[Tracked alloc] init];
  Tracked *scopes = [[Tracked alloc] init];
  Tracked *inBlock = [[Tracked alloc] init];
  PLAuthorizationCodeCompletion block = [^(NSString *, NSError *) {
    [inBlock description];
  } copy];
  [inBlock release];
  access_ = [&](ServiceHandler handler, ServiceErrorHandler) {
    [clientID release];
    [scopes release];
    [block release];
    EXPECT_EQ(sTrackedAlive, 3);
    handler(service_);
  };
  PLRequestAuthorizationCode((NSString *)clientID, (NSArray *)scopes, block);
  EXPECT_EQ(TakenCalls(), (Calls{"access", "code for tracked tracked"}));
  // The completion waits for the reply; the rest has gone.
  EXPECT_EQ(sTrackedAlive, 1);
  [service_->_codeReply release];
  service_->_codeReply = nil;
  [pool release];
  EXPECT_EQ(sTrackedAlive, 0);
}

TEST_F(Functions, HandAReplyOnAsItIs) {
  NSError *error = [NSError errorWithDomain:@"com.example" code:7 userInfo:nil];
  const std::string shown = TextOf(error.description);
  const struct {
    NSString *code;
    NSError *error;
    std::string outcome;
  } rows[] = {{@"code", nil, "code no error"},
              {nil, error, "(nil) " + shown},
              {@"code", error, "code " + shown},
              {nil, nil, "(nil) no error"}};
  size_t count = 0;
  for (const auto &row : rows) {
    PLRequestAuthorizationCode(@"client", @[], completion());
    service_->_codeReply(row.code, row.error);
    EXPECT_EQ(outcomes(++count).back(), row.outcome);
  }
}

TEST_F(Functions, TakeAReplyOfAnotherClassForAnError) {
  const struct {
    id code;
    id error;
  } rows[] = {{@42, nil}, {nil, @"error"}, {@"code", @"error"}, {@[], @[]}};
  size_t count = 0;
  for (const auto &row : rows) {
    PLRequestAuthorizationCode(@"client", @[], completion());
    service_->_codeReply(row.code, row.error);
    EXPECT_EQ(outcomes(++count).back().rfind("(nil) ", 0), 0u);
    ASSERT_NE(error_, nil);
    EXPECT_TRUE([error_.domain isEqualToString:NSCocoaErrorDomain]);
    EXPECT_EQ(error_.code, 4101);
    EXPECT_EQ(TextOf(error_.localizedDescription),
              "The Pellmar agent’s reply could not be understood.");
  }
}

TEST_F(Functions, TellOfAMissingAgent) {
  access_ = [](ServiceHandler handler, ServiceErrorHandler) { handler(nil); };
  PLRequestAuthorizationCode(@"client", @[], completion());
  EXPECT_EQ(outcomes().size(), 1u);
  EXPECT_TRUE([error_.domain isEqualToString:NSCocoaErrorDomain]);
  EXPECT_EQ(error_.code, 4099);
  EXPECT_EQ(TextOf(error_.localizedDescription), "The Pellmar agent could not be reached.");
}

TEST_F(Functions, TellOfARequestThatFailed) {
  access_ = [this](ServiceHandler handler, ServiceErrorHandler errorHandler) {
    handler(service_);
    errorHandler([NSError errorWithDomain:NSCocoaErrorDomain code:4097 userInfo:nil]);
  };
  PLRequestAuthorizationCode(@"client", @[], completion());
  EXPECT_EQ(outcomes().size(), 1u);
  EXPECT_EQ(error_.code, 4097);
}

TEST_F(Functions, AskForACodeWithoutACompletion) {
  PLRequestAuthorizationCode(@"client", @[], nil);
  service_->_codeReply(@"code", nil);
  access_ = [](ServiceHandler handler, ServiceErrorHandler) { handler(nil); };
  PLRequestAuthorizationCode(@"client", @[], nil);
}

TEST_F(Functions, LeaveTheConnectionsQueueToTheReplies) {
  // The queue on which replies come does nothing else while the completion runs.
  dispatch_queue_t connection = dispatch_queue_create("connection", DISPATCH_QUEUE_SERIAL);
  dispatch_semaphore_t done = dispatch_semaphore_create(0);
  service_->_onFetch = [^(void (^reply)(BOOL, NSString *)) {
    dispatch_async(connection, ^{
      reply(NO, nil);
    });
  } copy];
  __block PLEmailSharingAnswer answer = PLEmailSharingAnswerUnknown;
  PLRequestAuthorizationCode(@"client", @[], ^(NSString *, NSError *) {
    answer = PLGetLastUserEmailSharingResponse();
    dispatch_semaphore_signal(done);
  });
  void (^codeReply)(NSString *, NSError *) = [[service_->_codeReply retain] autorelease];
  dispatch_async(connection, ^{
    codeReply(@"code", nil);
  });
  dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
  EXPECT_EQ(answer, PLEmailSharingAnswerGiven);
  dispatch_release(done);
  dispatch_sync(connection, ^{
                });
  dispatch_release(connection);
}

#pragma mark - Release notes

TEST_F(Functions, AskForReleaseNotesEachTimeOrUntilOneRequestSucceeded) {
  const Calls request = {"access", "release notes"};
  EXPECT_EQ(PLCanShowReleaseNotesWindow(), YES);
  EXPECT_EQ(TakenCalls(), Calls{});
  PLShowReleaseNotesWindowIfNeeded();
  EXPECT_EQ(TakenCalls(), request);
  PLShowReleaseNotesWindowIfNeeded();
  EXPECT_EQ(TakenCalls(), request);
  service_->_notesReply([NSError errorWithDomain:@"com.example" code:7 userInfo:nil]);
  PLShowReleaseNotesWindowIfNeeded();
  EXPECT_EQ(TakenCalls(), request);
  service_->_notesReply(nil);
  PLShowReleaseNotesWindowIfNeeded();
  EXPECT_EQ(TakenCalls(), Calls{});
  PLShowReleaseNotesWindow();
  PLShowReleaseNotesWindow();
  EXPECT_EQ(TakenCalls(), (Calls{"access", "release notes", "access", "release notes"}));
  access_ = [](ServiceHandler handler, ServiceErrorHandler) { handler(nil); };
  PLShowReleaseNotesWindow();
  EXPECT_EQ(TakenCalls(), Calls{"access"});
}

#pragma mark - E-mail

TEST_F(Functions, HoldTheCallersBlockWhileTheyWait) {
  // 1. The call has begun. 2. The caller's block is released elsewhere. 3. The answer comes.
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  Tracked *inBlock = [[Tracked alloc] init];
  PLEmailSharingCompletion block = [^(PLEmailSharingAnswer answer) {
    sCalls.push_back("answer " + std::to_string(answer) + " with " + TextOf([inBlock description]) +
                     ", alive " + std::to_string(sTrackedAlive));
  } copy];
  [inBlock release];
  access_ = [&](ServiceHandler handler, ServiceErrorHandler) {
    [block release];
    EXPECT_EQ(sTrackedAlive, 1);
    handler(nil);
  };
  EXPECT_EQ(PLAskUserToShareEmail(block), NO);
  EXPECT_EQ(TakenCalls(), (Calls{"access", "answer 0 with tracked, alive 1"}));
  [pool release];
  EXPECT_EQ(sTrackedAlive, 0);
}

TEST_F(Functions, TakeABlockThatLivesOnTheStack) {
  int number = 42;
  access_ = [](ServiceHandler handler, ServiceErrorHandler) { handler(nil); };
  EXPECT_EQ(PLAskUserToShareEmail(nil), NO);
  EXPECT_EQ(PLAskUserToShareEmail(^(PLEmailSharingAnswer answer) {
              sCalls.push_back(std::to_string(answer) + " " + std::to_string(number));
            }),
            NO);
  EXPECT_EQ(sCalls.back(), "0 42");
}
