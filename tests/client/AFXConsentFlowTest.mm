//
// The consent flow step by step, with an accessor and an agent's proxy that do what the test says.
//

#import <AppKit/AppKit.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#import "client/AFXConsentFlow.h"
#include "event_loop.h"
#include "held_queue.h"
#include "method_swap.h"
#include "scripted_service.h"
#import "ui/AFXPermissionWindow.h"
#import "ui/AFXPermissionWindowController.h"

namespace {

using Calls = std::vector<std::string>;

}  // namespace

static std::set<const void *> sWindowsFreed;

@interface AFXPermissionWindow (Recording)
@end

@implementation AFXPermissionWindow (Recording)

- (void)center {
  sCalls.push_back("center");
  [super center];
}

- (void)dealloc {
  sWindowsFreed.insert(self);
  [super dealloc];
}

@end

namespace {

/// What the defaults answer where the client asks.
BOOL sPostponed;
/// Holds whoever reads them there, if there is one.
Gate *sInReading;
const MethodSwap *sReadDefaults;
const MethodSwap *sWriteDefaults;

// The toolkit has settings of its own.
bool IsClients(NSString *key) { return [key hasPrefix:@"ShouldAsk"]; }

BOOL ReadDefaults(id defaults, SEL cmd, NSString *key) {
  if (!IsClients(key)) {
    return sReadDefaults->original<BOOL(id, SEL, NSString *)>()(defaults, cmd, key);
  }
  EXPECT_EQ(defaults, NSUserDefaults.standardUserDefaults);
  sCalls.push_back("read " + TextOf(key));
  if (sInReading) {
    sInReading->pass();
  }
  return sPostponed;
}

void WriteDefaults(id defaults, SEL cmd, BOOL value, NSString *key) {
  if (!IsClients(key)) {
    sWriteDefaults->original<void(id, SEL, BOOL, NSString *)>()(defaults, cmd, value, key);
    return;
  }
  EXPECT_EQ(defaults, NSUserDefaults.standardUserDefaults);
  sCalls.push_back("write " + TextOf(key) + (value ? " YES" : " NO"));
}

/// What a question does instead of waiting, if there is something.
std::function<intptr_t(dispatch_group_t)> sWait;

/// Whether nobody has to wait for the group.
bool IsOver(dispatch_group_t group);

class ConsentFlow : public testing::Test {
 protected:
  ConsentFlow()
      : read_(class_getInstanceMethod(NSUserDefaults.class, @selector(boolForKey:)), ReadDefaults),
        write_(class_getInstanceMethod(NSUserDefaults.class, @selector(setBool:forKey:)),
               WriteDefaults) {
    sReadDefaults = &read_;
    sWriteDefaults = &write_;
  }

  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    service_ = [[ScriptedService alloc] init];
    access_ = [this](ServiceHandler handler, ServiceErrorHandler) { handler(service_); };
    sPostponed = NO;
    sWait = nullptr;
    sCalls.clear();
  }

  void TearDown() override {
    if (NSWindow *window = shownWindow()) {
      [(AFXPermissionWindowController *)window.windowController askLater:nil];
    }
    [service_ release];
    [pool_ release];
  }

  /// Has the agent reply at once, on a thread of its own as a connection does.
  void replyAtOnce(BOOL shouldAsk, NSString *email) {
    [service_->_onFetch release];
    service_->_onFetch = [^(void (^reply)(BOOL, NSString *)) {
      std::thread([=] {
        @autoreleasepool {
          reply(shouldAsk, email);
        }
      }).join();
    } copy];
  }

  /// Runs what the main queue holds, and nothing that comes later.
  static void runMainQueue() {
    __block bool isDone = false;
    dispatch_async(dispatch_get_main_queue(), ^{
      isDone = true;
    });
    bool *done = &isDone;
    ComesTrue([=] { return *done; });
  }

  static NSWindow *shownWindow() {
    for (NSWindow *window in NSApp.windows) {
      if ([window isKindOfClass:AFXPermissionWindow.class] && window.isVisible) {
        return window;
      }
    }
    return nil;
  }

  static AFXPermissionWindowController *controller() {
    return (AFXPermissionWindowController *)shownWindow().windowController;
  }

  /// The reply block of the last request.
  void (^lastReply())(BOOL, NSString *) { return [[service_->_statusReply retain] autorelease]; }

  /// Asks, and returns the controller of the window that has come up.
  AFXPermissionWindowController *ask(NSString *email = @"jane@example.com") {
    replyAtOnce(YES, email);
    EXPECT_EQ(AFXAskCustomerPermissions(^(AFXConsentChoice status) {
                EXPECT_TRUE(NSThread.isMainThread);
                sCalls.push_back("completion " + std::to_string(status));
              }),
              YES);
    EXPECT_EQ(shownWindow(), nil);
    runMainQueue();
    TakenCalls();
    return controller();
  }

  ScriptedAccess access_;
  ScriptedService *service_ = nil;

 private:
  const MethodSwap read_;
  const MethodSwap write_;
  NSAutoreleasePool *pool_ = nil;
};

}  // namespace

#pragma mark - Status

// Interposed: this program calls these instead of the system's, so that a wait need not be
// measured.

static bool sRecordsWaits;
static dispatch_time_t sEnd;

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
  static const auto next =
      reinterpret_cast<decltype(&dispatch_time)>(dlsym(RTLD_NEXT, "dispatch_time"));
  const dispatch_time_t time = next(when, delta);
  if (sRecordsWaits) {
    sCalls.push_back(std::to_string(delta) + " ns from " +
                     (when == DISPATCH_TIME_NOW ? "now" : "another time"));
    sEnd = time;
  }
  return time;
}

static intptr_t Wait(dispatch_group_t group, dispatch_time_t timeout) {
  static const auto next =
      reinterpret_cast<decltype(&dispatch_group_wait)>(dlsym(RTLD_NEXT, "dispatch_group_wait"));
  return next(group, timeout);
}

namespace {

bool IsOver(dispatch_group_t group) { return Wait(group, DISPATCH_TIME_NOW) == 0; }

}  // namespace

intptr_t dispatch_group_wait(dispatch_group_t group, dispatch_time_t timeout) {
  if (const auto wait = sWait) {
    return wait(group);
  }
  if (!sRecordsWaits) {
    return Wait(group, timeout);
  }
  sCalls.push_back(timeout == sEnd ? "wait until then" : "wait for something else");
  return 1;
}

TEST_F(ConsentFlow, IsAnsweredWhenTheAgentDoesNotWantTheCustomerAsked) {
  sPostponed = YES;
  replyAtOnce(NO, @"jane@example.com");
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 1u);
  EXPECT_EQ(TakenCalls(), (Calls{"access", "fetch"}));
}

TEST_F(ConsentFlow, IsToBeAskedOrPostponedAsTheDefaultsHaveIt) {
  replyAtOnce(YES, nil);
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0u);
  EXPECT_EQ(TakenCalls(), (Calls{"access", "fetch", "read ShouldAskForPermissionLater"}));
  sPostponed = YES;
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 2u);
}

TEST_F(ConsentFlow, IsUnknownAtOnceWithoutAnAgentWhateverItWasBefore) {
  replyAtOnce(NO, nil);
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 1u);
  access_ = [](ServiceHandler handler, ServiceErrorHandler) { handler(nil); };
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0x7FFFFFFFFFFFFFFFu);
}

TEST_F(ConsentFlow, IsUnknownAtOnceWhenTheRequestFails) {
  access_ = [this](ServiceHandler handler, ServiceErrorHandler errorHandler) {
    handler(service_);
    errorHandler([NSError errorWithDomain:NSCocoaErrorDomain code:4097 userInfo:nil]);
  };
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0x7FFFFFFFFFFFFFFFu);
}

TEST_F(ConsentFlow, WaitsForTwoSecondsFromTheEndOfTheAccess) {
  access_ = [&](ServiceHandler handler, ServiceErrorHandler) {
    handler(service_);
    sRecordsWaits = true;
  };
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0x7FFFFFFFFFFFFFFFu);
  sRecordsWaits = false;
  EXPECT_EQ(TakenCalls(), (Calls{"access", "fetch", "2000000000 ns from now", "wait until then"}));
  // A connection ends every request in the end, and what is kept for it goes then.
  service_->_statusReply(NO, nil);
}

TEST_F(ConsentFlow, TakesALateReplyForWhatComesNext) {
  sRecordsWaits = true;
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0x7FFFFFFFFFFFFFFFu);
  sRecordsWaits = false;
  void (^late)(BOOL, NSString *) = [[service_->_statusReply retain] autorelease];
  replyAtOnce(YES, @"first@example.com");
  EXPECT_EQ(AFXAskCustomerPermissions(nil), YES);
  late(NO, @"late@example.com");
  runMainQueue();
  EXPECT_EQ(TextOf(controller().userEmail), "late@example.com");
}

TEST_F(ConsentFlow, HasNoAddressOfAnotherClass) {
  AFXPermissionWindowController *controller = ask((NSString *)@42);
  EXPECT_NE(controller, nil);
  EXPECT_EQ(controller.userEmail, nil);
}

#pragma mark - Without a window

TEST_F(ConsentFlow, TellsAtOnceWhereNobodyIsAsked) {
  const struct {
    bool isThere;
    AFXConsentChoice status;
  } rows[] = {{true, 1}, {false, 0x7FFFFFFFFFFFFFFF}};
  replyAtOnce(NO, nil);
  for (const auto &row : rows) {
    if (!row.isThere) {
      access_ = [](ServiceHandler handler, ServiceErrorHandler) { handler(nil); };
    }
    std::thread([&] {
      @autoreleasepool {
        __block AFXConsentChoice told = 99;
        NSThread *caller = NSThread.currentThread;
        EXPECT_EQ(AFXAskCustomerPermissions(^(AFXConsentChoice status) {
                    EXPECT_EQ(NSThread.currentThread, caller);
                    told = status;
                  }),
                  NO);
        EXPECT_EQ(told, row.status);
        EXPECT_EQ(AFXAskCustomerPermissions(nil), NO);
      }
    }).join();
    runMainQueue();
    EXPECT_EQ(shownWindow(), nil);
  }
}

#pragma mark - Answers

TEST_F(ConsentFlow, ShowsTheAddressThatTheAgentReported) {
  EXPECT_EQ(TextOf(ask().userEmail), "jane@example.com");
}

TEST_F(ConsentFlow, AsksAgainAfterAPostponement) {
  sPostponed = YES;
  EXPECT_NE(ask(), nil);
}

TEST_F(ConsentFlow, ReportsTheAddressThatWasAllowedAndThenTellsTheCaller) {
  [ask() allowEmailSharing:nil];
  EXPECT_EQ(TakenCalls(), (Calls{"access", "update jane@example.com", "completion 1"}));
}

TEST_F(ConsentFlow, ReportsARefusalWithoutAnAddress) {
  [ask() forbidEmailSharing:nil];
  EXPECT_EQ(TakenCalls(), (Calls{"access", "update (nil)", "completion 1"}));
}

TEST_F(ConsentFlow, KeepsAPostponementInTheDefaultsAndTellsNobodyElse) {
  [ask() askLater:nil];
  EXPECT_EQ(TakenCalls(), (Calls{"write ShouldAskForPermissionLater YES", "completion 2"}));
}

TEST_F(ConsentFlow, DropsAnAnswerThatNobodyTakes) {
  AFXPermissionWindowController *controller = ask();
  access_ = [](ServiceHandler handler, ServiceErrorHandler) { handler(nil); };
  [controller allowEmailSharing:nil];
  runMainQueue();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  runMainQueue();
  EXPECT_EQ(TakenCalls(), (Calls{"access", "completion 1"}));
}

TEST_F(ConsentFlow, AReplyToTheReportChangesNothing) {
  [ask() allowEmailSharing:nil];
  TakenCalls();
  service_->_updateReply(NO);
  service_->_updateReply(YES);
  runMainQueue();
  EXPECT_EQ(TakenCalls(), Calls{});
}

TEST_F(ConsentFlow, LivesWithoutACompletion) {
  replyAtOnce(YES, nil);
  EXPECT_EQ(AFXAskCustomerPermissions(nil), YES);
  runMainQueue();
  TakenCalls();
  [controller() forbidEmailSharing:nil];
  EXPECT_EQ(TakenCalls(), (Calls{"access", "update (nil)"}));
  EXPECT_EQ(shownWindow(), nil);
}

#pragma mark - The one window

TEST_F(ConsentFlow, BringsTheWindowThatIsUpToTheFrontAndForgetsTheLaterCaller) {
  AFXPermissionWindowController *first = ask();
  NSWindow *other = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 700, 500)
                                                styleMask:NSWindowStyleMaskTitled
                                                  backing:NSBackingStoreBuffered
                                                    defer:NO];
  other.releasedWhenClosed = NO;
  [other makeKeyAndOrderFront:nil];
  EXPECT_EQ(AFXAskCustomerPermissions(^(AFXConsentChoice) {
              sCalls.push_back("completion of the later call");
            }),
            YES);
  runMainQueue();
  EXPECT_EQ(controller(), first);
  NSWindow *window = first.window;
  EXPECT_TRUE(ComesTrue([=] { return window.isKeyWindow; }));
  // It was not shown anew, which would centre it.
  EXPECT_EQ(TakenCalls(), (Calls{"access", "fetch", "read ShouldAskForPermissionLater"}));
  [first forbidEmailSharing:nil];
  EXPECT_EQ(TakenCalls(), (Calls{"access", "update (nil)", "completion 1"}));
  [other orderOut:nil];
  [other release];
}

TEST_F(ConsentFlow, AnAnswerTakesNoAddressFromTheNextQuestion) {
  AFXPermissionWindowController *first = ask();
  // 1. Another thread asks, and has the agent's reply. 2. The customer refuses in the window that
  // is up, before the main queue goes on. 3. It goes on, with a window of the later call.
  std::thread([] {
    @autoreleasepool {
      EXPECT_EQ(AFXAskCustomerPermissions(nil), YES);
    }
  }).join();
  TakenCalls();
  [first forbidEmailSharing:nil];
  EXPECT_EQ(TakenCalls(), (Calls{"access", "update (nil)", "completion 1"}));
  runMainQueue();
  EXPECT_EQ(TextOf(controller().userEmail), "jane@example.com");
  TakenCalls();
  [controller() allowEmailSharing:nil];
  EXPECT_EQ(TakenCalls(), (Calls{"access", "update jane@example.com"}));
}

TEST_F(ConsentFlow, ShowsAWindowAgainThatSomebodyHid) {
  AFXPermissionWindowController *first = ask();
  [first.window orderOut:nil];
  EXPECT_EQ(AFXAskCustomerPermissions(nil), YES);
  runMainQueue();
  EXPECT_EQ(controller(), first);
  EXPECT_EQ(TakenCalls().back(), "center");
}

TEST_F(ConsentFlow, IsReadyForTheNextQuestionBeforeTheCallerIsTold) {
  replyAtOnce(YES, @"jane@example.com");
  __block AFXPermissionWindowController *second = nil;
  AFXAskCustomerPermissions(^(AFXConsentChoice) {
    // As an application does that shows an alert here: the main queue goes on.
    EXPECT_EQ(AFXAskCustomerPermissions(^(AFXConsentChoice) {
                sCalls.push_back("completion of the second");
              }),
              YES);
    runMainQueue();
    second = controller();
  });
  runMainQueue();
  AFXPermissionWindowController *first = controller();
  [first forbidEmailSharing:nil];
  ASSERT_NE(second, nil);
  EXPECT_NE(second, first);
  TakenCalls();
  [second askLater:nil];
  EXPECT_EQ(TakenCalls(),
            (Calls{"write ShouldAskForPermissionLater YES", "completion of the second"}));
}

TEST_F(ConsentFlow, KeepsTheWindowUntilItsActionHasReturned) {
  sWindowsFreed.clear();
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  AFXPermissionWindowController *controller = ask();
  const void *window = controller.window;
  [controller allowEmailSharing:nil];
  EXPECT_EQ(sWindowsFreed.count(window), 0u);
  EXPECT_EQ(TextOf(controller.userEmail), "jane@example.com");
  [pool release];
  EXPECT_TRUE(ComesTrue([=] { return sWindowsFreed.count(window) == 1; }));
}

#pragma mark - Races

// Each pair that can meet, in both orders. Replies and failures come in on the connection's queue.

TEST_F(ConsentFlow, AReplyCountsUntilTheStatusIsReturned) {
  sWait = [this](dispatch_group_t group) {
    void (^reply)(BOOL, NSString *) = lastReply();
    // 1. The two seconds are over.
    EXPECT_FALSE(IsOver(group));
    // 2. The reply comes in. 3. The status is returned.
    HeldQueue queue;
    queue.add([=] { reply(NO, nil); });
    queue.finish();
    EXPECT_TRUE(IsOver(group));
    return 1;
  };
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 1u);
}

TEST_F(ConsentFlow, AReplyAfterTheStatusWasReturnedFindsWhatItNeeds) {
  // 1. The two seconds are over. 2. The status is returned.
  sWait = [](dispatch_group_t) { return 1; };
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0x7FFFFFFFFFFFFFFFu);
  sWait = nullptr;
  // 3. The reply comes in.
  void (^reply)(BOOL, NSString *) = lastReply();
  HeldQueue queue;
  queue.add([=] { reply(YES, @"late@example.com"); });
  queue.finish();
  // 4. A window that comes up now shows what the agent replies next.
  EXPECT_EQ(TextOf(ask(@"next@example.com").userEmail), "next@example.com");
}

TEST_F(ConsentFlow, ALateReplyIsNotTheEndOfTheNextQuestion) {
  for (const bool lateFirst : {true, false}) {
    SCOPED_TRACE(lateFirst);
    // 1. Nothing comes in for the first question in time.
    sWait = [](dispatch_group_t) { return 1; };
    EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0x7FFFFFFFFFFFFFFFu);
    void (^late)(BOOL, NSString *) = lastReply();
    // 2. The next one waits.
    sWait = [&](dispatch_group_t group) {
      void (^reply)(BOOL, NSString *) = lastReply();
      HeldQueue queue;
      if (lateFirst) {
        // 3. The late reply comes in, 4. and then its own.
        queue.add([=] { late(YES, nil); });
        queue.finish();
        EXPECT_FALSE(IsOver(group));
      }
      queue.add([=] { reply(NO, nil); });
      queue.finish();
      EXPECT_TRUE(IsOver(group));
      if (!lateFirst) {
        // 3. Its own has come in; 4. the late one does before the status is returned.
        queue.add([=] { late(YES, nil); });
        queue.finish();
      }
      return 0;
    };
    // What was replied last counts, whichever question it was to.
    EXPECT_EQ(AFXGetPreviousCustomerChoice(), lateFirst ? 1u : 0u);
  }
}

TEST_F(ConsentFlow, ALateReplyBeforeTheNextQuestionIsNotItsAnswer) {
  // 1. Nothing comes in for the first question in time. 2. Its reply comes in late.
  sWait = [](dispatch_group_t) { return 1; };
  AFXGetPreviousCustomerChoice();
  void (^late)(BOOL, NSString *) = lastReply();
  HeldQueue queue;
  queue.add([=] { late(NO, nil); });
  queue.finish();
  // 3. Nothing comes in for the next one either, as long as it waits.
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0x7FFFFFFFFFFFFFFFu);
  lastReply()(NO, nil);
}

TEST_F(ConsentFlow, AReplyThatIsUnderWayWhenTheNextQuestionBeginsIsOneToIt) {
  // 1. Nothing comes in for the first question in time.
  sWait = [](dispatch_group_t) { return 1; };
  AFXGetPreviousCustomerChoice();
  void (^late)(BOOL, NSString *) = lastReply();
  // 2. Its reply has begun, and is held where it reads the defaults.
  Gate inReading;
  sInReading = &inReading;
  HeldQueue queue;
  queue.add([=] { late(YES, nil); });
  queue.go();
  ASSERT_TRUE(inReading.isReached());
  // 3. The next question waits. 4. The reply goes on. 5. The two seconds are over.
  sWait = [&](dispatch_group_t group) {
    inReading.open();
    queue.finish();
    EXPECT_FALSE(IsOver(group));
    return 1;
  };
  EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0u);
  sInReading = nullptr;
  // A connection ends every request in the end.
  lastReply()(NO, nil);
}

TEST_F(ConsentFlow, AReplyAndAFailureOfOneQuestionEndItOnce) {
  // A question is left once, or the process would end.
  for (const bool replyFirst : {true, false}) {
    SCOPED_TRACE(replyFirst);
    ServiceErrorHandler fail = nil;
    access_ = [&](ServiceHandler handler, ServiceErrorHandler errorHandler) {
      fail = [[errorHandler copy] autorelease];
      handler(service_);
    };
    sWait = [&](dispatch_group_t group) {
      void (^reply)(BOOL, NSString *) = lastReply();
      ServiceErrorHandler failNow = fail;
      // 1. The connection's queue is held. 2. The one comes in, and behind it 3. the other.
      HeldQueue queue;
      for (const bool isReply : {replyFirst, !replyFirst}) {
        queue.add([=] {
          isReply ? reply(NO, nil)
                  : failNow([NSError errorWithDomain:NSCocoaErrorDomain code:4097 userInfo:nil]);
        });
      }
      EXPECT_FALSE(IsOver(group));
      // 4. The queue goes on.
      queue.finish();
      EXPECT_TRUE(IsOver(group));
      return 0;
    };
    EXPECT_EQ(AFXGetPreviousCustomerChoice(), 1u);
  }
}

TEST_F(ConsentFlow, QuestionsSideBySideShareOneStatus) {
  for (const bool firstReturnsFirst : {true, false}) {
    SCOPED_TRACE(firstReturnsFirst);
    replyAtOnce(NO, nil);
    // 1. The first question has its reply, and is held before it returns the status.
    Gate beforeReturn;
    sWait = [&](dispatch_group_t) {
      beforeReturn.pass();
      return 0;
    };
    AFXConsentChoice status = 99;
    std::thread first([&] {
      @autoreleasepool {
        status = AFXGetPreviousCustomerChoice();
      }
    });
    ASSERT_TRUE(beforeReturn.isReached());
    // 2. It goes on, 3. and there is a second one that nobody answers; or the other way round.
    access_ = [](ServiceHandler handler, ServiceErrorHandler) { handler(nil); };
    sWait = [](dispatch_group_t) { return 0; };
    if (firstReturnsFirst) {
      beforeReturn.open();
      first.join();
    }
    EXPECT_EQ(AFXGetPreviousCustomerChoice(), 0x7FFFFFFFFFFFFFFFu);
    if (!firstReturnsFirst) {
      beforeReturn.open();
      first.join();
    }
    EXPECT_EQ(status, firstReturnsFirst ? 1u : 0x7FFFFFFFFFFFFFFFu);
    access_ = [this](ServiceHandler handler, ServiceErrorHandler) { handler(service_); };
  }
}

TEST_F(ConsentFlow, ShowsAWindowOfItsOwnToWhoeverAskedJustBeforeTheAnswer) {
  AFXPermissionWindowController *first = ask();
  // 1. The main queue is held, since this is it. 2. Another thread asks.
  std::thread([&] {
    @autoreleasepool {
      EXPECT_EQ(AFXAskCustomerPermissions(^(AFXConsentChoice) {
                  sCalls.push_back("completion of the later call");
                }),
                YES);
    }
  }).join();
  // 3. The customer answers the first question.
  TakenCalls();
  [first forbidEmailSharing:nil];
  EXPECT_EQ(TakenCalls(), (Calls{"access", "update (nil)", "completion 1"}));
  // 4. The main queue goes on. In the other order the later caller is forgotten (see above).
  runMainQueue();
  ASSERT_NE(controller(), nil);
  EXPECT_NE(controller(), first);
  TakenCalls();
  [controller() forbidEmailSharing:nil];
  EXPECT_EQ(TakenCalls(), (Calls{"access", "update (nil)", "completion of the later call"}));
}

TEST_F(ConsentFlow, ReportsWhatWasAnsweredWhateverIsRepliedMeanwhile) {
  const struct {
    SEL answer;
    const char *update;
  } rows[] = {{@selector(forbidEmailSharing:), "update (nil)"},
              {@selector(allowEmailSharing:), "update jane@example.com"}};
  for (const auto &row : rows) {
    for (const bool replyFirst : {true, false}) {
      SCOPED_TRACE(std::string(row.update) + (replyFirst ? ", reply first" : ""));
      AFXPermissionWindowController *controller = ask();
      void (^otherReply)(BOOL, NSString *) = lastReply();
      ServiceHandler waiting = nil;
      access_ = [&](ServiceHandler handler, ServiceErrorHandler) {
        waiting = [[handler copy] autorelease];
      };
      // 1. The connection's queue is held. 2. A reply to another question brings an address.
      HeldQueue queue;
      queue.add([=] { otherReply(YES, @"other@example.com"); });
      if (replyFirst) {
        // 3. The queue goes on.
        queue.finish();
      }
      // 3 or 4. The customer answers; the accessor keeps the handler, since it has no connection
      // yet. 4 or 3. The queue goes on.
      [controller performSelector:row.answer withObject:nil];
      queue.finish();
      TakenCalls();
      // 5. The handler gets its proxy.
      waiting(service_);
      EXPECT_EQ(TakenCalls(), Calls{row.update});
      access_ = [this](ServiceHandler handler, ServiceErrorHandler) { handler(service_); };
    }
  }
}

#pragma mark - The end of the process

namespace {

/// What is under way, and whether it goes on while the process ends.
using UnderWay = std::tuple<const char *, bool>;

class ConsentFlowAtExit : public ConsentFlow, public testing::WithParamInterface<UnderWay> {
 protected:
  /// Has the queue come to the gate in the middle of it.
  void begin(const std::string &what) {
    if (what == "a question") {
      sWait = [this](dispatch_group_t) {
        gate_.pass();
        return 1;
      };
      queue_.add([] { AFXGetPreviousCustomerChoice(); });
      return;
    }
    if (what == "a question to the customer") {
      ask();
    }
    sWait = [](dispatch_group_t) { return 1; };
    AFXGetPreviousCustomerChoice();
    void (^reply)(BOOL, NSString *) = lastReply();
    sInReading = &gate_;
    queue_.add([=] { reply(YES, @"late@example.com"); });
  }

  Gate gate_;
  HeldQueue queue_;
};

}  // namespace

TEST_P(ConsentFlowAtExit, NothingHappensToTheProcess) {
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

INSTANTIATE_TEST_SUITE_P(While, ConsentFlowAtExit,
                         testing::Combine(testing::Values("a question", "a late reply",
                                                          "a question to the customer"),
                                          testing::Bool()));

TEST_F(ConsentFlow, MayEndTheProcessInsideTheAnswer) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        replyAtOnce(YES, @"jane@example.com");
        AFXAskCustomerPermissions(^(AFXConsentChoice) {
          std::exit(3);
        });
        runMainQueue();
        [controller() forbidEmailSharing:nil];
      },
      testing::ExitedWithCode(3), testing::Eq(""));
}
