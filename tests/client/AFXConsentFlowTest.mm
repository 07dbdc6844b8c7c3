//
// The consent flow step by step, with an accessor and an agent's proxy that do what the test says.
//

#import <AppKit/AppKit.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#import "client/AFXConsentFlow.h"
#include "event_loop.h"
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

intptr_t dispatch_group_wait(dispatch_group_t group, dispatch_time_t timeout) {
  static const auto next =
      reinterpret_cast<decltype(&dispatch_group_wait)>(dlsym(RTLD_NEXT, "dispatch_group_wait"));
  if (!sRecordsWaits) {
    return next(group, timeout);
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

TEST_F(ConsentFlow, ReportsWhatWasAnsweredWhateverIsRepliedMeanwhile) {
  // 1. The customer answers; the accessor keeps the handler, since it has no connection yet.
  // 2. A reply to another question brings an address.
  // 3. The handler gets its proxy.
  const struct {
    SEL answer;
    const char *update;
  } rows[] = {{@selector(forbidEmailSharing:), "update (nil)"},
              {@selector(allowEmailSharing:), "update jane@example.com"}};
  for (const auto &row : rows) {
    AFXPermissionWindowController *controller = ask();
    void (^otherReply)(BOOL, NSString *) = [[service_->_statusReply retain] autorelease];
    ServiceHandler waiting = nil;
    access_ = [&](ServiceHandler handler, ServiceErrorHandler) {
      waiting = [[handler copy] autorelease];
    };
    [controller performSelector:row.answer withObject:nil];
    otherReply(YES, @"other@example.com");
    TakenCalls();
    waiting(service_);
    EXPECT_EQ(TakenCalls(), Calls{row.update});
    access_ = [this](ServiceHandler handler, ServiceErrorHandler) { handler(service_); };
  }
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
