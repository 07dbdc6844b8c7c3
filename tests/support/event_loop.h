#ifndef TESTS_UNIT_EVENT_LOOP_H
#define TESTS_UNIT_EVENT_LOOP_H

#import <AppKit/AppKit.h>

#include <functional>

/// Runs the event loop until the condition holds, not at all if it does already. False if it times
/// out. For what comes through the loop: events, blocks of the main queue, changes of windows.
inline bool ComesTrue(const std::function<bool()> &condition) {
  NSDate *end = [NSDate dateWithTimeIntervalSinceNow:30];
  while (!condition()) {
    @autoreleasepool {
      if (end.timeIntervalSinceNow < 0) {
        return false;
      }
      NSEvent *event = [NSApp nextEventMatchingMask:NSAnyEventMask
                                          untilDate:[NSDate dateWithTimeIntervalSinceNow:0.02]
                                             inMode:NSDefaultRunLoopMode
                                            dequeue:YES];
      if (event) {
        [NSApp sendEvent:event];
      }
    }
  }
  return true;
}

/// Gives the application this appearance, nil for the system's, and waits until it has it.
inline bool UseAppearance(NSString *name) {
  NSApp.appearance = name ? [NSAppearance appearanceNamed:name] : nil;
  return ComesTrue(
      [=] { return name == nil || [NSApp.effectiveAppearance.name isEqualToString:name]; });
}

#endif
