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

void post(NSString *pid, NSDictionary *userInfo) {
  CFNotificationCenterPostNotification(CFNotificationCenterGetDistributedCenter(),
                                       (CFNotificationName)AFXProvisioningDebugNotificationName,
                                       (const void *)pid, (CFDictionaryRef)userInfo, YES);
}

NSDictionary *message(id value) {
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
      post(pid, message(@(argument)));
    } else if (kind == "burst") {
      const int count = atoi(argument);
      for (int i = 0; i < count; ++i) {
        @autoreleasepool {
          post(pid, message([NSString stringWithFormat:@"message %d of the burst", i]));
        }
      }
    } else if (kind == "without-message") {
      post(pid, [NSDictionary dictionaryWithObject:@"text" forKey:@"another key"]);
    } else if (kind == "without-user-info") {
      post(pid, nil);
    } else if (kind == "number") {
      post(pid, message(@42));
    } else if (kind == "array") {
      post(pid, message(@[ @"one", @2 ]));
    } else if (kind == "nul") {
      const unichar characters[] = {'a', 0, 'z'};
      post(pid, message([NSString stringWithCharacters:characters length:3]));
    } else if (kind == "megabytes") {
      const auto length = static_cast<NSUInteger>(atoi(argument)) << 20;
      post(pid, message([@"" stringByPaddingToLength:length
                                          withString:@"0123456789"
                                     startingAtIndex:0]));
    } else {
      fprintf(stderr, "debug_poster: unknown kind: %s\n", kind.c_str());
      return 2;
    }
  }
  return 0;
}
