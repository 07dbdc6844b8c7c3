//
// Copies the agent's debug messages for this process to the process's log.
//

#include <unistd.h>

#import "client/Pellmar.h"

extern "C" int __cxa_atexit(void (*function)(void *), void *argument, void *image);
extern "C" void *__dso_handle;

/// Both the enabled flag and, by its address, the token under which the relay observes.
static unsigned char __logObserver;

static CFStringRef __AFXDebugLogNotificationName(void) {
  static NSString *sNotificationName;
  static dispatch_once_t sOnce;
  dispatch_once(&sOnce, ^{
    sNotificationName = [[NSString alloc] initWithUTF8String:"com.pellmar.debug-log-notification"];
  });
  return (CFStringRef)sNotificationName;
}

static CFStringRef __AFXDebugLogMessageKey(void) {
  static NSString *sNotificationMessageKey;
  static dispatch_once_t sOnce;
  dispatch_once(&sOnce, ^{
    sNotificationMessageKey = [[NSString alloc] initWithUTF8String:"com.pellmar.debug-log-message"];
  });
  return (CFStringRef)sNotificationMessageKey;
}

static void __AFXHandleLoggingNotification(CFNotificationCenterRef, void *, CFNotificationName,
                                           const void *, CFDictionaryRef userInfo) {
  if (userInfo == NULL) {
    return;
  }
  const void *message = CFDictionaryGetValue(userInfo, __AFXDebugLogMessageKey());
  if (message == NULL) {
    return;
  }
  // Another process wrote the message: it must never be the format.
  NSLog(@"%@", (id)message);
}

static void __AFXLogDebugLoggingStarted(void) {
  static dispatch_once_t sOnce;
  dispatch_once(&sOnce, ^{
    NSLog(@"Pellmar client %s: debug logging is on for this process.", AFX_VERSION);
  });
}

void PLEnableDebugLogging(BOOL enable) {
  if (enable && !__logObserver) {
    __logObserver = 1;
    CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
    NSString *object = [[NSString alloc] initWithFormat:@"%lu", (unsigned long)(int64_t)getpid()];
    CFNotificationCenterAddObserver(center, &__logObserver, __AFXHandleLoggingNotification,
                                    __AFXDebugLogNotificationName(), (const void *)object,
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
    __AFXLogDebugLoggingStarted();
    [object release];
  } else if (!(enable & 1) && __logObserver) {
    __logObserver = 0;
    CFNotificationCenterRemoveObserver(CFNotificationCenterGetDistributedCenter(), &__logObserver,
                                       __AFXDebugLogNotificationName(), NULL);
  }
}

static void __AFXDisableDebugLogging(void) { PLEnableDebugLogging(NO); }

/// Has the relay switched off when the process exits or the image is unloaded.
__attribute__((constructor)) static void __AFXRegisterDebugLoggingSwitchOff(void) {
  __cxa_atexit([](void *) { __AFXDisableDebugLogging(); }, NULL, &__dso_handle);
}
