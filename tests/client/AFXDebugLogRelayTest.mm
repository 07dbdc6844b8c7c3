//
// The relay against a notification center of the test: what it asks of the center, and what it
// makes of a notification.
//

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#import "client/Pellmar.h"

namespace {

using Calls = std::vector<std::string>;

// Never freed: the relay calls once more when the process ends.
Calls &sCalls = *new Calls;
const void *sObserver;
CFNotificationCallback sCallback;
NSString *sObject;
char sCenter;

Calls Taken() {
  Calls calls;
  calls.swap(sCalls);
  return calls;
}

/// The byte that is both the flag and, by its address, the observer.
int Flag() { return sObserver ? *static_cast<const unsigned char *>(sObserver) : -1; }

std::string Text(const void *string) { return [(NSString *)string UTF8String]; }

/// What the relay logs for a notification.
std::string Logged(NSDictionary *userInfo) {
  testing::internal::CaptureStderr();
  sCallback(reinterpret_cast<CFNotificationCenterRef>(&sCenter), const_cast<void *>(sObserver),
            nullptr, nullptr, reinterpret_cast<CFDictionaryRef>(userInfo));
  return testing::internal::GetCapturedStderr();
}

}  // namespace

// Interposed: this program calls these instead of the system's.

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) {
  sCalls.push_back("center, flag " + std::to_string(Flag()));
  return reinterpret_cast<CFNotificationCenterRef>(&sCenter);
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void *observer,
                                     CFNotificationCallback callback, CFNotificationName name,
                                     const void *object,
                                     CFNotificationSuspensionBehavior behavior) {
  EXPECT_EQ(static_cast<const void *>(center), &sCenter);
  sObserver = observer;
  sCallback = callback;
  [sObject release];
  sObject = [(NSString *)object retain];
  sCalls.push_back("add " + Text(name) + " " + Text(object) + ", behavior " +
                   std::to_string(behavior) + ", flag " + std::to_string(Flag()));
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void *observer,
                                        CFNotificationName name, const void *object) {
  // Also when the process ends, where no pool is left.
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  EXPECT_EQ(static_cast<const void *>(center), &sCenter);
  EXPECT_EQ(observer, sObserver);
  sCalls.push_back("remove " + Text(name) + (object ? " of an object" : "") + ", flag " +
                   std::to_string(Flag()));
  [pool release];
}

const void *CFDictionaryGetValue(CFDictionaryRef dictionary, const void *key) {
  EXPECT_NE(dictionary, nullptr);
  sCalls.push_back("look up " + Text(key));
  return [(NSDictionary *)dictionary objectForKey:(id)key];
}

TEST(DebugLogRelay, GoesOnAndOffOnceAndTellsItsFirstStart) {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  PLEnableDebugLogging(NO);
  EXPECT_EQ(Taken(), Calls{});

  testing::internal::CaptureStderr();
  PLEnableDebugLogging(YES);
  const std::string name = "com.pellmar.debug-log-notification";
  const std::string process = std::to_string(getpid());
  EXPECT_EQ(Taken(),
            (Calls{"center, flag -1", "add " + name + " " + process + ", behavior 4, flag 1"}));
  PLEnableDebugLogging(YES);
  EXPECT_EQ(Taken(), Calls{});
  PLEnableDebugLogging(NO);
  EXPECT_EQ(Taken(), (Calls{"center, flag 0", "remove " + name + ", flag 0"}));
  PLEnableDebugLogging(NO);
  EXPECT_EQ(Taken(), Calls{});
  PLEnableDebugLogging(YES);
  // The flag is set before anything else.
  EXPECT_EQ(Taken(),
            (Calls{"center, flag 1", "add " + name + " " + process + ", behavior 4, flag 1"}));
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("debug logging is on for this process"), std::string::npos);
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
  [pool release];
}

TEST(DebugLogRelay, LeavesTheObjectToTheCenter) {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  PLEnableDebugLogging(NO);
  PLEnableDebugLogging(YES);
  [pool release];
  // This test's own reference is the last.
  EXPECT_EQ(sObject.retainCount, 1u);
}

TEST(DebugLogRelay, LogsTheMessageAsItWasSentAndNothingElse) {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  PLEnableDebugLogging(YES);
  Taken();
  EXPECT_EQ(Logged(nil), "");
  EXPECT_EQ(Taken(), Calls{});
  EXPECT_EQ(Logged(@{}), "");
  EXPECT_EQ(Taken(), Calls{"look up com.pellmar.debug-log-message"});
  EXPECT_EQ(Logged(@{AFXProvisioningDebugAppNameKey : @"Agent"}), "");
  const std::string log = Logged(@{AFXProvisioningDebugMessageKey : @"100 %@ %n"});
  EXPECT_NE(log.find("] 100 %@ %n\n"), std::string::npos) << log;
  EXPECT_NE(Logged(@{AFXProvisioningDebugMessageKey : @42}).find("] 42\n"), std::string::npos);
  [pool release];
}
