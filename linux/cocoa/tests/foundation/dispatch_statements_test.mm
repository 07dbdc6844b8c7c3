// What Apple's headers state about queues, groups and semaphores, a test a statement, as far as the
// other tests do not have it.

#include <gtest/gtest.h>

#import <Foundation/Foundation.h>
#include <unistd.h>

#include <atomic>

namespace {

class DispatchStatements : public testing::Test {
 protected:
  void SetUp() override { pool_ = [NSAutoreleasePool new]; }
  void TearDown() override { [pool_ release]; }

 private:
  NSAutoreleasePool *pool_;
};

/// Waits for what must happen, on a machine that has other work too.
bool Arrives(dispatch_semaphore_t semaphore) {
  return dispatch_semaphore_wait(semaphore, dispatch_time(DISPATCH_TIME_NOW, 20 * NSEC_PER_SEC)) ==
         0;
}

}  // namespace

TEST_F(DispatchStatements, AsyncNeverWaitsForItsBlockToBeInvoked) {
  dispatch_queue_t queue = dispatch_queue_create("statements", DISPATCH_QUEUE_SERIAL);
  dispatch_semaphore_t mayRun = dispatch_semaphore_create(0);
  dispatch_semaphore_t hasRun = dispatch_semaphore_create(0);
  for (int i = 0; i < 2; ++i) {
    dispatch_async(queue, ^{
      dispatch_semaphore_wait(mayRun, DISPATCH_TIME_FOREVER);
      dispatch_semaphore_signal(hasRun);
    });
  }
  // Here, before either could end.
  for (int i = 0; i < 2; ++i) {
    dispatch_semaphore_signal(mayRun);
    EXPECT_TRUE(Arrives(hasRun));
  }
  dispatch_release(queue);
  dispatch_release(mayRun);
  dispatch_release(hasRun);
}

TEST_F(DispatchStatements, SerialQueuesRunConcurrentlyWithEachOther) {
  dispatch_queue_t one = dispatch_queue_create("one", DISPATCH_QUEUE_SERIAL);
  dispatch_queue_t other = dispatch_queue_create("other", DISPATCH_QUEUE_SERIAL);
  dispatch_semaphore_t met = dispatch_semaphore_create(0);
  dispatch_semaphore_t ended = dispatch_semaphore_create(0);
  dispatch_async(one, ^{
    EXPECT_TRUE(Arrives(met));
    dispatch_semaphore_signal(ended);
  });
  dispatch_async(other, ^{
    dispatch_semaphore_signal(met);
  });
  EXPECT_TRUE(Arrives(ended));
  dispatch_sync(other, ^{
                });
  dispatch_release(one);
  dispatch_release(other);
  dispatch_release(met);
  dispatch_release(ended);
}

TEST_F(DispatchStatements, SyncRetainsNeitherItsQueueNorItsBlock) {
  dispatch_queue_t queue = dispatch_queue_create("statements", DISPATCH_QUEUE_SERIAL);
  NSObject *captured = [[NSObject new] autorelease];
  __block NSUInteger inside = 0;
  dispatch_sync(queue, ^{
    inside = [captured retainCount];
  });
  EXPECT_EQ(inside, 1u);
  dispatch_barrier_sync(queue, ^{
    inside = [captured retainCount];
  });
  EXPECT_EQ(inside, 1u);
  dispatch_release(queue);
}

TEST_F(DispatchStatements, ABarrierOnAGlobalQueueIsAsAnAsync) {
  dispatch_queue_t queue = dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0);
  dispatch_semaphore_t passed = dispatch_semaphore_create(0);
  dispatch_semaphore_t ended = dispatch_semaphore_create(0);
  dispatch_async(queue, ^{
    EXPECT_TRUE(Arrives(passed));
    dispatch_semaphore_signal(ended);
  });
  dispatch_barrier_async(queue, ^{
    dispatch_semaphore_signal(passed);
  });
  EXPECT_TRUE(Arrives(ended));
  dispatch_release(passed);
  dispatch_release(ended);
}

TEST_F(DispatchStatements, ABlockAfterABarrierWaitsForItAndBarrierSyncReturnsAfterwards) {
  dispatch_queue_t queue = dispatch_queue_create("statements", DISPATCH_QUEUE_CONCURRENT);
  static std::atomic<int> before;
  before = 0;
  for (int i = 0; i < 8; ++i) {
    dispatch_async(queue, ^{
      ++before;
    });
  }
  __block int seen = 0;
  dispatch_barrier_sync(queue, ^{
    seen = before;
  });
  EXPECT_EQ(seen, 8);
  __block bool barrierEnded = false;
  __block bool waited = false;
  dispatch_barrier_async(queue, ^{
    barrierEnded = true;
  });
  dispatch_sync(queue, ^{
    waited = barrierEnded;
  });
  EXPECT_TRUE(waited);
  dispatch_release(queue);
}

TEST_F(DispatchStatements, ADestructorRunsWhenANewContextIsSetForItsKey) {
  static char key;
  dispatch_queue_t queue = dispatch_queue_create("statements", DISPATCH_QUEUE_SERIAL);
  dispatch_semaphore_t gone = dispatch_semaphore_create(0);
  const dispatch_function_t destructor = [](void *context) {
    dispatch_semaphore_signal(static_cast<dispatch_semaphore_t>(context));
  };
  dispatch_queue_set_specific(queue, &key, gone, destructor);
  dispatch_queue_set_specific(queue, &key, gone, destructor);
  EXPECT_TRUE(Arrives(gone));
  EXPECT_NE(dispatch_semaphore_wait(gone, DISPATCH_TIME_NOW), 0);
  dispatch_queue_set_specific(queue, &key, nullptr, nullptr);
  EXPECT_TRUE(Arrives(gone));
  EXPECT_EQ(dispatch_queue_get_specific(queue, &key), nullptr);
  dispatch_release(queue);
  dispatch_release(gone);
}

TEST_F(DispatchStatements, AGroupIsEmptyAfterItsWaitAndMayBeUsedAgain) {
  dispatch_group_t group = dispatch_group_create();
  dispatch_queue_t queue = dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0);
  static std::atomic<int> runs;
  runs = 0;
  for (int round = 1; round <= 3; ++round) {
    for (int i = 0; i < 4; ++i) {
      dispatch_group_async(group, queue, ^{
        ++runs;
      });
    }
    EXPECT_EQ(dispatch_group_wait(group, DISPATCH_TIME_FOREVER), 0);
    EXPECT_EQ(runs, 4 * round);
    EXPECT_EQ(dispatch_group_wait(group, DISPATCH_TIME_NOW), 0);
  }
  dispatch_release(group);
}

TEST_F(DispatchStatements, AGroupIsEmptyWhenItsNotificationRunsAndMayBeReleasedBefore) {
  dispatch_group_t group = dispatch_group_create();
  dispatch_semaphore_t notified = dispatch_semaphore_create(0);
  dispatch_queue_t queue = dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0);
  dispatch_semaphore_t mayEnd = dispatch_semaphore_create(0);
  dispatch_group_async(group, queue, ^{
    dispatch_semaphore_wait(mayEnd, DISPATCH_TIME_FOREVER);
  });
  dispatch_group_notify(group, queue, ^{
    EXPECT_EQ(dispatch_group_wait(group, DISPATCH_TIME_NOW), 0);
    dispatch_semaphore_signal(notified);
  });
  dispatch_release(group);
  EXPECT_NE(dispatch_semaphore_wait(notified, DISPATCH_TIME_NOW), 0);
  dispatch_semaphore_signal(mayEnd);
  EXPECT_TRUE(Arrives(notified));
  dispatch_release(notified);
  dispatch_release(mayEnd);
}

TEST_F(DispatchStatements, SignalTellsWhetherAThreadWasWoken) {
  dispatch_semaphore_t semaphore = dispatch_semaphore_create(0);
  dispatch_semaphore_t woken = dispatch_semaphore_create(0);
  EXPECT_EQ(dispatch_semaphore_signal(semaphore), 0);
  EXPECT_EQ(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW), 0);
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
    for (int i = 0; i < 100; ++i) {
      dispatch_semaphore_wait(semaphore, DISPATCH_TIME_FOREVER);
    }
    dispatch_semaphore_signal(woken);
  });
  int wakes = 0;
  for (int i = 0; i < 100; ++i) {
    usleep(1000);
    wakes += dispatch_semaphore_signal(semaphore) != 0;
  }
  EXPECT_TRUE(Arrives(woken));
  EXPECT_GT(wakes, 0);
  dispatch_release(semaphore);
  dispatch_release(woken);
}
