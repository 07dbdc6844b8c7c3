#import "DispatchQueue.h"

#include "../threads/FoundationReady.h"

/// A global queue: it knows no barriers, so that it starts everything at once.
@interface OS_dispatch_queue_global : OS_dispatch_queue
@end

@implementation OS_dispatch_queue_global

- (void)add:(struct DispatchWork *)work {
  work->barrier = NO;
  [super add:work];
}

- (void)runAndWait:(dispatch_function_t)function context:(void *)context barrier:(BOOL)barrier {
  (void)barrier;
  [super runAndWait:function context:context barrier:NO];
}

- (id)retain {
  return self;
}

- (oneway void)release {
}

@end

dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags) {
  PlatformMakeFoundationReady();
  enum { kBackground, kUtility, kDefault, kUserInitiated, kUserInteractive, kCount };
  static const char *const labels[kCount] = {
      "com.apple.root.background-qos",       "com.apple.root.utility-qos",
      "com.apple.root.default-qos",          "com.apple.root.user-initiated-qos",
      "com.apple.root.user-interactive-qos",
  };
  static OS_dispatch_queue_global *queues[kCount];
  static dispatch_once_t once;
  dispatch_once(&once, ^{
    for (int i = 0; i < kCount; ++i) {
      queues[i] = [[OS_dispatch_queue_global alloc] initWithLabel:labels[i] serial:NO];
    }
  });
  if (flags) {
    return nil;
  }
  switch (identifier) {
    case DISPATCH_QUEUE_PRIORITY_BACKGROUND:
    case QOS_CLASS_BACKGROUND:
      return queues[kBackground];
    case DISPATCH_QUEUE_PRIORITY_LOW:
    case QOS_CLASS_UTILITY:
      return queues[kUtility];
    case QOS_CLASS_UNSPECIFIED:  // The same number as DISPATCH_QUEUE_PRIORITY_DEFAULT.
    case QOS_CLASS_DEFAULT:
      return queues[kDefault];
    case DISPATCH_QUEUE_PRIORITY_HIGH:
    case QOS_CLASS_USER_INITIATED:
      return queues[kUserInitiated];
    case QOS_CLASS_USER_INTERACTIVE:
      return queues[kUserInteractive];
    default:
      return nil;
  }
}
