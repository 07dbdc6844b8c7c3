//
// Posts debug notifications that the development agent would not: bursts, and values of every kind.
// debug_poster PID KIND [ARGUMENT]; the kinds are below.
//

#import <Foundation/Foundation.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#import "client/Pellmar.h"

namespace {

void Post(NSString *pid, NSDictionary *userInfo) {
  CFNotificationCenterPostNotification(CFNotificationCenterGetDistributedCenter(),
                                       (CFNotificationName)AFXProvisioningDebugNotificationName,
                                       (const void *)pid, (CFDictionaryRef)userInfo, YES);
}

NSDictionary *Message(id value) {
  return [NSDictionary dictionaryWithObject:value forKey:AFXProvisioningDebugMessageKey];
}

}  // namespace

int main(int argc, char *argv[]) {
  @autoreleasepool {
    if (argc < 3) {
      return 2;
    }
    NSString *pid = @(argv[1]);
    const std::string kind = argv[2];
    const char *argument = argc > 3 ? argv[3] : "";

    if (kind == "text") {
      Post(pid, Message(@(argument)));
    } else if (kind == "burst") {
      const int count = atoi(argument);
      for (int i = 0; i < count; ++i) {
        @autoreleasepool {
          Post(pid, Message([NSString stringWithFormat:@"message %d of the burst", i]));
        }
      }
    } else if (kind == "flood") {
      // For so many seconds, without a pause and without waiting for anybody.
      const dispatch_time_t end =
          dispatch_time(DISPATCH_TIME_NOW, atoi(argument) * (int64_t)NSEC_PER_SEC);
      for (int i = 0; dispatch_time(DISPATCH_TIME_NOW, 0) < end; ++i) {
        @autoreleasepool {
          Post(pid, Message([NSString stringWithFormat:@"message %d of the flood", i]));
        }
      }
    } else if (kind == "without-message") {
      Post(pid, [NSDictionary dictionaryWithObject:@"text" forKey:@"another key"]);
    } else if (kind == "without-user-info") {
      Post(pid, nil);
    } else if (kind == "number") {
      Post(pid, Message(@42));
    } else if (kind == "array") {
      Post(pid, Message(@[ @"one", @2 ]));
    } else if (kind == "nul") {
      const unichar characters[] = {'a', 0, 'z'};
      Post(pid, Message([NSString stringWithCharacters:characters length:3]));
    } else if (kind == "megabytes") {
      const auto length = static_cast<NSUInteger>(atoi(argument)) << 20;
      Post(pid, Message([@"" stringByPaddingToLength:length
                                          withString:@"0123456789"
                                     startingAtIndex:0]));
    } else {
      fprintf(stderr, "debug_poster: unknown kind: %s\n", kind.c_str());
      return 2;
    }
  }
  return 0;
}
