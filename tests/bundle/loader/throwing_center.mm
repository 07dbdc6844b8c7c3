// Preloaded into a process: the distributed center raises where an observer is added, whatever
// THROW names, and says so on standard output.

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

void CFNotificationCenterAddObserver(CFNotificationCenterRef, const void *, CFNotificationCallback,
                                     CFStringRef, const void *, CFNotificationSuspensionBehavior) {
  const std::string thrown = std::getenv("THROW");
  std::puts(thrown.c_str());
  std::fflush(stdout);
  if (thrown == "NSException") {
    [NSException raise:NSGenericException format:@"thrown"];
  }
  if (thrown == "std::runtime_error") {
    throw std::runtime_error("thrown");
  }
}
