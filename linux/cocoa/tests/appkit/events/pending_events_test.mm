#include <dispatch/dispatch.h>

#include <CocoaTesting/LookTest.h>

using PendingEvents = look::LookTest;

/// Whether something has the run loop return before a generous end.
static bool IsWoken() {
  NSDate *end = [NSDate dateWithTimeIntervalSinceNow:20];
  [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:end];
  return [end timeIntervalSinceNow] > 0;
}

// A modal loop that a block of the main queue runs has to hear of pending events, too.
TEST_F(PendingEvents, WakeARunLoopInsideABlockOfTheMainQueueEachTime) {
  static int sWoken;
  static bool sIsDone;
  sWoken = 0;
  sIsDone = false;
  dispatch_async(dispatch_get_main_queue(), ^{
    for (int i = 0; i < 3; i++) {
      dispatch_async(dispatch_get_main_queue(), ^{
                     });
      sWoken += IsWoken();
    }
    sIsDone = true;
  });
  EXPECT_TRUE(look::PumpUntil([] { return sIsDone; }, 90));
  EXPECT_EQ(sWoken, 3);
}
