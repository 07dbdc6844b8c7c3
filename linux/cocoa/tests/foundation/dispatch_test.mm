#include <gtest/gtest.h>

#import <Foundation/Foundation.h>

#include <dirent.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "blocked_queues.h"

/// Notes whether a group is empty when it goes.
@interface DispatchTestGroupWitness : NSObject {
 @public
  dispatch_group_t _group;
  bool *_wasEmpty;
}
@end

@implementation DispatchTestGroupWitness
- (void)dealloc {
  *_wasEmpty = dispatch_group_wait(_group, DISPATCH_TIME_NOW) == 0;
  [super dealloc];
}
@end

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Runs the main run loop until `done`, for a minute at most.
bool RunLoopUntil(bool (^done)(void), NSString *mode = NSDefaultRunLoopMode) {
  Clock::time_point start = Clock::now();
  while (!done() && SecondsSince(start) < 60) {
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    [[NSRunLoop currentRunLoop] runMode:mode beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.02]];
    [pool release];
  }
  return done();
}

/// A thread that Foundation did not start.
std::thread Foreign(dispatch_block_t block) {
  dispatch_block_t copy = Block_copy(block);
  return std::thread([copy] {
    copy();
    Block_release(copy);
  });
}

size_t ThreadCount() {
  size_t count = 0;
  DIR *directory = opendir("/proc/self/task");
  while (dirent *entry = readdir(directory)) {
    count += entry->d_name[0] != '.';
  }
  closedir(directory);
  return count;
}

dispatch_time_t In(double seconds) {
  return dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(seconds * NSEC_PER_SEC));
}

class Dispatch : public testing::Test {
 protected:
  // A death test's child runs the whole program anew: its workers would be missing after a fork.
  static void SetUpTestSuite() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  void SetUp() override { pool_ = [NSAutoreleasePool new]; }
  void TearDown() override { [pool_ release]; }
  NSAutoreleasePool *pool_;
};

class DispatchMainQueue : public Dispatch {};
class DispatchQueue : public Dispatch {};
class DispatchGroup : public Dispatch {};
class DispatchSemaphore : public Dispatch {};
class DispatchOnce : public Dispatch {};
class DispatchTime : public Dispatch {};
using DispatchDeathTest = Dispatch;

// Main queue

TEST_F(DispatchMainQueue, RunsNothingBeforeTheRunLoopRuns) {
  __block bool ran = false;
  dispatch_async(dispatch_get_main_queue(), ^{
    ran = true;
  });
  EXPECT_FALSE(ran);
  EXPECT_TRUE(RunLoopUntil(^bool {
    return ran;
  }));
}

TEST_F(DispatchMainQueue, IsDrainedInAllCommonModes) {
  for (NSString *mode in [NSArray arrayWithObjects:NSDefaultRunLoopMode, @"NSModalPanelRunLoopMode",
                                                   @"NSEventTrackingRunLoopMode", nil]) {
    __block bool ran = false;
    dispatch_async(dispatch_get_global_queue(0, 0), ^{
      dispatch_async(dispatch_get_main_queue(), ^{
        ran = true;
      });
    });
    EXPECT_TRUE(RunLoopUntil(
        ^bool {
          return ran;
        },
        mode))
        << [mode UTF8String];
  }
}

TEST_F(DispatchMainQueue, IsWokenByAThreadUnknownToFoundation) {
  __block bool onMain = false;
  __block bool ran = false;
  std::thread foreign = Foreign(^{
    dispatch_async(dispatch_get_main_queue(), ^{
      onMain = [NSThread isMainThread];
      ran = true;
    });
  });
  EXPECT_TRUE(RunLoopUntil(^bool {
    return ran;
  }));
  EXPECT_TRUE(onMain);
  foreign.join();
}

TEST_F(DispatchMainQueue, RunsABurstInOrder) {
  constexpr int kCount = 10000;
  __block int next = 0;
  __block bool ordered = true;
  std::thread foreign = Foreign(^{
    for (int i = 0; i < kCount; ++i) {
      dispatch_async(dispatch_get_main_queue(), ^{
        ordered = ordered && next == i;
        ++next;
      });
    }
  });
  EXPECT_TRUE(RunLoopUntil(^bool {
    return next == kCount;
  }));
  foreign.join();
  EXPECT_TRUE(ordered);
}

TEST_F(DispatchMainQueue, LeavesARunLoopIterationBetweenBlocksThatFollowEachOther) {
  // A block that always adds the next one must not keep timers from firing.
  __block bool stop = false;
  __block int waiting = 0;
  __block void (^again)(void) = nil;
  again = [^{
    --waiting;
    if (stop) {
      return;
    }
    ++waiting;
    dispatch_async(dispatch_get_main_queue(), again);
  } copy];
  ++waiting;
  dispatch_async(dispatch_get_main_queue(), again);
  NSTimer *timer = [[NSTimer scheduledTimerWithTimeInterval:0.02
                                                     target:[NSNull null]
                                                   selector:@selector(description)
                                                   userInfo:nil
                                                    repeats:NO] retain];
  EXPECT_TRUE(RunLoopUntil(^bool {
    return ![timer isValid];
  }));
  stop = true;
  EXPECT_TRUE(RunLoopUntil(^bool {
    return !waiting;
  }));
  [timer release];
  [again release];
}

TEST_F(DispatchMainQueue, IsNotDrainedByARunLoopInsideItsBlock) {
  __block bool second = false;
  __block bool secondDuringFirst = false;
  __block bool first = false;
  dispatch_async(dispatch_get_main_queue(), ^{
    dispatch_async(dispatch_get_main_queue(), ^{
      second = true;
    });
    [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                             beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.05]];
    secondDuringFirst = second;
    first = true;
  });
  EXPECT_TRUE(RunLoopUntil(^bool {
    return first && second;
  }));
  EXPECT_FALSE(secondDuringFirst);
}

TEST_F(DispatchMainQueue, WakesAnIdleRunLoop) {
  __block int ran = 0;
  std::thread foreign = Foreign(^{
    for (int i = 0; i < 20; ++i) {
      // Long enough for the main thread to have gone to sleep.
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      dispatch_sync(dispatch_get_main_queue(), ^{
        ++ran;
      });
    }
  });
  NSDate *end = [NSDate dateWithTimeIntervalSinceNow:60];
  while (ran < 20) {
    ASSERT_TRUE([[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:end]);
    ASSERT_GT([end timeIntervalSinceNow], 0) << "woken by its own time only";
  }
  foreign.join();
}

TEST_F(DispatchMainQueue, RunsASyncBlockOfAnotherThreadOnTheMainThread) {
  static std::atomic<bool> onMain;
  static std::atomic<bool> returned;
  std::thread foreign = Foreign(^{
    dispatch_sync(dispatch_get_main_queue(), ^{
      onMain = [NSThread isMainThread];
    });
    returned = true;
  });
  EXPECT_TRUE(RunLoopUntil(^bool {
    return returned;
  }));
  EXPECT_TRUE(onMain);
  foreign.join();
}

// Queues

TEST_F(DispatchQueue, SerialRunsInOrderAndNeverTwoAtOnce) {
  dispatch_queue_t queue = dispatch_queue_create("serial", DISPATCH_QUEUE_SERIAL);
  __block int next = 0;
  __block bool ordered = true;
  for (int i = 0; i < 10000; ++i) {
    dispatch_async(queue, ^{
      ordered = ordered && next == i;
      ++next;
    });
  }
  __block int seen = 0;
  dispatch_sync(queue, ^{
    seen = next;
  });
  EXPECT_EQ(10000, seen);
  EXPECT_TRUE(ordered);
  dispatch_release(queue);
}

TEST_F(DispatchQueue, SerialMixesSyncAndAsyncFromManyThreads) {
  dispatch_queue_t queue = dispatch_queue_create("mixed", DISPATCH_QUEUE_SERIAL);
  __block int inside = 0;
  __block int total = 0;
  __block bool alone = true;
  void (^work)(void) = [^{
    alone = alone && ++inside == 1;
    ++total;
    --inside;
  } copy];
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([queue, work] {
      for (int i = 0; i < 1000; ++i) {
        if (i % 3) {
          dispatch_async(queue, work);
        } else {
          dispatch_sync(queue, work);
        }
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  dispatch_sync(queue, ^{
                });
  EXPECT_EQ(4000, total);
  EXPECT_TRUE(alone);
  [work release];
  dispatch_release(queue);
}

TEST_F(DispatchQueue, SyncRunsOnTheCallingThread) {
  dispatch_queue_t queue = dispatch_queue_create(nullptr, nullptr);
  __block std::thread::id ran;
  dispatch_async(queue, ^{
                 });
  dispatch_sync(queue, ^{
    ran = std::this_thread::get_id();
  });
  EXPECT_EQ(std::this_thread::get_id(), ran);
  dispatch_release(queue);
}

TEST_F(DispatchQueue, LivesUntilItsBlocksHaveRun) {
  dispatch_semaphore_t done = dispatch_semaphore_create(0);
  dispatch_queue_t queue = dispatch_queue_create("short", DISPATCH_QUEUE_SERIAL);
  for (int i = 0; i < 10; ++i) {
    dispatch_async(queue, ^{
      dispatch_semaphore_signal(done);
    });
  }
  dispatch_release(queue);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(0, dispatch_semaphore_wait(done, In(10)));
  }
  dispatch_release(done);
}

TEST_F(DispatchQueue, ConcurrentRunsTogetherAndABarrierAlone) {
  dispatch_queue_t queue = dispatch_queue_create("concurrent", DISPATCH_QUEUE_CONCURRENT);
  dispatch_semaphore_t met = dispatch_semaphore_create(0);
  static std::atomic<int> running;
  static std::atomic<bool> alone;
  alone = true;
  // Each waits for the other, which a serial queue would never bring together.
  dispatch_async(queue, ^{
    ++running;
    dispatch_semaphore_wait(met, DISPATCH_TIME_FOREVER);
    --running;
  });
  dispatch_async(queue, ^{
    ++running;
    dispatch_semaphore_signal(met);
    --running;
  });
  dispatch_barrier_async(queue, ^{
    if (running) {
      alone = false;
    }
  });
  for (int i = 0; i < 100; ++i) {
    dispatch_async(queue, ^{
      ++running;
      --running;
    });
    dispatch_barrier_async(queue, ^{
      if (running) {
        alone = false;
      }
    });
  }
  dispatch_barrier_sync(queue, ^{
    if (running) {
      alone = false;
    }
  });
  EXPECT_TRUE(alone);
  dispatch_release(queue);
  dispatch_release(met);
}

TEST_F(DispatchQueue, SixtyFourBlockedWorkersDoNotStopASerialQueue) {
  constexpr int kBlocked = 80;
  dispatch_semaphore_t gate = dispatch_semaphore_create(0);
  dispatch_group_t group = dispatch_group_create();
  dispatch_queue_t serial = dispatch_queue_create("behind", DISPATCH_QUEUE_SERIAL);
  for (int i = 0; i < kBlocked; ++i) {
    dispatch_group_async(group, dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
      dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER);
    });
  }
  dispatch_async(serial, ^{
    for (int i = 0; i < kBlocked; ++i) {
      dispatch_semaphore_signal(gate);
    }
  });
  EXPECT_EQ(0, dispatch_group_wait(group, In(10)));
  EXPECT_LT(ThreadCount(), 100u);
  dispatch_release(serial);
  dispatch_release(group);
  dispatch_release(gate);
}

TEST_F(DispatchQueue, BlockedSerialQueuesDoNotStopAGlobalOne) {
  EXPECT_TRUE(AGlobalQueueGoesOnBesideBlockedOnes([] {}));
}

TEST_F(DispatchQueue, ABurstOnAGlobalQueueKeepsThreadsBounded) {
  dispatch_group_t group = dispatch_group_create();
  static std::atomic<int> ran;
  ran = 0;
  for (int i = 0; i < 10000; ++i) {
    dispatch_group_async(group, dispatch_get_global_queue(0, 0), ^{
      ++ran;
    });
  }
  EXPECT_EQ(0, dispatch_group_wait(group, In(10)));
  EXPECT_EQ(10000, ran);
  dispatch_release(group);
}

TEST_F(DispatchQueue, WorkersHaveAnAutoreleasePoolForEachBlock) {
  dispatch_queue_t queue = dispatch_queue_create("pool", DISPATCH_QUEUE_SERIAL);
  __block NSUInteger count = 0;
  NSObject *object = [NSObject new];
  dispatch_async(queue, ^{
    [[object retain] autorelease];
  });
  dispatch_async(queue, ^{
    count = [object retainCount];
  });
  dispatch_sync(queue, ^{
                });
  // Ours and that of a block that may not have been freed yet.
  EXPECT_LE(count, 2u);
  [object release];
  dispatch_release(queue);
}

TEST_F(DispatchQueue, KnowsLabelsAndSpecifics) {
  static char key;
  static int value;
  static std::atomic<int> destroyed;
  dispatch_queue_t queue = dispatch_queue_create("com.example.labelled", nullptr);
  EXPECT_STREQ("com.example.labelled", dispatch_queue_get_label(queue));
  EXPECT_STREQ("com.apple.main-thread", dispatch_queue_get_label(dispatch_get_main_queue()));
  dispatch_queue_set_specific(queue, &key, &value, [](void *) { ++destroyed; });
  EXPECT_EQ(&value, dispatch_queue_get_specific(queue, &key));
  EXPECT_EQ(nullptr, dispatch_get_specific(&key));
  __block void *seen = nullptr;
  __block std::string label;
  dispatch_sync(queue, ^{
    seen = dispatch_get_specific(&key);
    label = dispatch_queue_get_label(DISPATCH_CURRENT_QUEUE_LABEL);
    dispatch_assert_queue(queue);
    dispatch_assert_queue_not(dispatch_get_global_queue(0, 0));
  });
  EXPECT_EQ(&value, seen);
  EXPECT_EQ("com.example.labelled", label);
  dispatch_release(queue);
  EXPECT_TRUE(RunLoopUntil(^bool {
    return destroyed == 1;
  }));
}

TEST_F(DispatchQueue, GlobalQueuesAreKnownByTheirNumbers) {
  EXPECT_NE(nil, dispatch_get_global_queue(QOS_CLASS_UTILITY, 0));
  EXPECT_EQ(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0),
            dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0));
  EXPECT_EQ(nil, dispatch_get_global_queue(77, 0));
  EXPECT_EQ(nil, dispatch_get_global_queue(0, 1));
}

TEST_F(DispatchQueue, AsyncFunctionsGetTheirContext) {
  static std::atomic<int> number;
  dispatch_async_f(dispatch_get_global_queue(0, 0), &number,
                   [](void *context) { *static_cast<std::atomic<int> *>(context) = 5; });
  EXPECT_TRUE(RunLoopUntil(^bool {
    return number == 5;
  }));
}

TEST_F(DispatchQueue, BlocksRetainDispatchObjectsTheyCapture) {
  dispatch_group_t group = dispatch_group_create();
  dispatch_group_enter(group);
  dispatch_semaphore_t done = dispatch_semaphore_create(0);
  EXPECT_EQ(1u, [group retainCount]);
  void (^leave)(void) = [^{
    dispatch_group_leave(group);
    dispatch_semaphore_signal(done);
  } copy];
  EXPECT_EQ(2u, [group retainCount]);
  dispatch_release(group);
  dispatch_async(dispatch_get_global_queue(0, 0), leave);
  [leave release];
  EXPECT_EQ(0, dispatch_semaphore_wait(done, In(10)));
  dispatch_release(done);
}

// Time

TEST_F(DispatchTime, AfterRunsInTheOrderOfTheMoments) {
  NSMutableArray *order = [NSMutableArray array];
  Clock::time_point start = Clock::now();
  __block double late = 0;
  dispatch_after(In(0.06), dispatch_get_main_queue(), ^{
    [order addObject:@"second"];
    late = SecondsSince(start);
  });
  dispatch_after(In(0.02), dispatch_get_main_queue(), ^{
    [order addObject:@"first"];
  });
  dispatch_after(DISPATCH_TIME_FOREVER, dispatch_get_main_queue(), ^{
    [order addObject:@"never"];
  });
  dispatch_after(DISPATCH_TIME_NOW, dispatch_get_main_queue(), ^{
    [order addObject:@"now"];
  });
  EXPECT_TRUE(RunLoopUntil(^bool {
    return [order count] == 3;
  }));
  EXPECT_GE(late, 0.06);
  NSArray *expected = [NSArray arrayWithObjects:@"now", @"first", @"second", nil];
  EXPECT_TRUE([order isEqual:expected]) << [[order description] UTF8String];
}

TEST_F(DispatchTime, AddsAndClamps) {
  EXPECT_EQ(150u, dispatch_time(100, 50));
  EXPECT_EQ(50u, dispatch_time(100, -50));
  EXPECT_EQ(1u, dispatch_time(100, INT64_MIN));
  EXPECT_EQ(DISPATCH_TIME_FOREVER, dispatch_time(DISPATCH_TIME_FOREVER, -5));
  EXPECT_EQ(DISPATCH_TIME_FOREVER, dispatch_time(~1ull, 5));
  EXPECT_LT(dispatch_time(DISPATCH_TIME_NOW, -1000), dispatch_time(DISPATCH_TIME_NOW, 0));
}

// Groups

TEST_F(DispatchGroup, WaitEndsWithTheLastLeave) {
  dispatch_group_t group = dispatch_group_create();
  EXPECT_EQ(0, dispatch_group_wait(group, DISPATCH_TIME_NOW));
  dispatch_group_enter(group);
  dispatch_group_enter(group);
  EXPECT_NE(0, dispatch_group_wait(group, DISPATCH_TIME_NOW));
  dispatch_after(In(0.01), dispatch_get_global_queue(0, 0), ^{
    dispatch_group_leave(group);
    dispatch_group_leave(group);
  });
  EXPECT_EQ(0, dispatch_group_wait(group, In(10)));
  dispatch_release(group);
}

TEST_F(DispatchGroup, WaitGivesUpAtItsTimeout) {
  dispatch_group_t group = dispatch_group_create();
  dispatch_group_enter(group);
  Clock::time_point start = Clock::now();
  EXPECT_NE(0, dispatch_group_wait(group, In(0.1)));
  EXPECT_GE(SecondsSince(start), 0.1);
  dispatch_group_leave(group);
  dispatch_release(group);
}

TEST_F(DispatchGroup, NotifiesOnceItIsEmptyAndAtOnceIfItIs) {
  dispatch_group_t group = dispatch_group_create();
  __block int notified = 0;
  dispatch_group_enter(group);
  dispatch_group_notify(group, dispatch_get_main_queue(), ^{
    ++notified;
  });
  dispatch_group_notify(group, dispatch_get_main_queue(), ^{
    ++notified;
  });
  Clock::time_point start = Clock::now();
  EXPECT_TRUE(RunLoopUntil(^bool {
    return SecondsSince(start) > 0.02;
  }));
  EXPECT_EQ(0, notified);
  dispatch_group_leave(group);
  EXPECT_TRUE(RunLoopUntil(^bool {
    return notified == 2;
  }));
  dispatch_group_notify(group, dispatch_get_main_queue(), ^{
    ++notified;
  });
  dispatch_release(group);
  EXPECT_TRUE(RunLoopUntil(^bool {
    return notified == 3;
  }));
}

TEST_F(DispatchGroup, MayBeReleasedByTheWaiterAsSoonAsItWakes) {
  for (int i = 0; i < 500; ++i) {
    dispatch_group_t group = dispatch_group_create();
    dispatch_group_enter(group);
    dispatch_async(dispatch_get_global_queue(0, 0), ^{
      dispatch_group_leave(group);
    });
    ASSERT_EQ(0, dispatch_group_wait(group, DISPATCH_TIME_FOREVER));
    dispatch_release(group);
  }
}

TEST_F(DispatchGroup, ReleasesABlockBeforeItIsLeftForIt) {
  bool wasEmpty = true;
  dispatch_group_t group = dispatch_group_create();
  DispatchTestGroupWitness *witness = [DispatchTestGroupWitness new];
  witness->_group = group;
  witness->_wasEmpty = &wasEmpty;
  dispatch_semaphore_t mayRun = dispatch_semaphore_create(0);
  dispatch_group_async(group, dispatch_get_global_queue(0, 0), ^{
    dispatch_semaphore_wait(mayRun, DISPATCH_TIME_FOREVER);
    (void)witness;
  });
  [witness release];
  dispatch_semaphore_signal(mayRun);
  EXPECT_EQ(0, dispatch_group_wait(group, DISPATCH_TIME_FOREVER));
  EXPECT_FALSE(wasEmpty);
  dispatch_release(mayRun);
  dispatch_release(group);
}

// Semaphores

TEST_F(DispatchSemaphore, CountsAndTimesOut) {
  dispatch_semaphore_t semaphore = dispatch_semaphore_create(1);
  EXPECT_EQ(0, dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW));
  EXPECT_NE(0, dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW));
  EXPECT_NE(0, dispatch_semaphore_wait(semaphore, In(0.01)));
  EXPECT_EQ(0, dispatch_semaphore_signal(semaphore));
  EXPECT_EQ(0, dispatch_semaphore_signal(semaphore));
  EXPECT_EQ(0, dispatch_semaphore_wait(semaphore, DISPATCH_TIME_FOREVER));
  dispatch_release(semaphore);
  EXPECT_EQ(nil, dispatch_semaphore_create(-1));
}

// Once

TEST_F(DispatchOnce, RunsOnceAndAllWaitForIt) {
  static dispatch_once_t once;
  static std::atomic<int> runs;
  static std::atomic<bool> ended;
  std::atomic<int> early{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      dispatch_once(&once, ^{
        ++runs;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ended = true;
      });
      if (!ended) {
        ++early;
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(1, runs);
  EXPECT_EQ(0, early);
}

TEST_F(DispatchOnce, NestsWithAnotherPredicate) {
  static dispatch_once_t outer, inner;
  __block int runs = 0;
  dispatch_once(&outer, ^{
    dispatch_once(&inner, ^{
      ++runs;
    });
    ++runs;
  });
  EXPECT_EQ(2, runs);
}

// Misuse, exceptions, the end of the process

TEST_F(DispatchDeathTest, ReleasingAnEnteredGroupAborts) {
  EXPECT_EXIT(
      {
        dispatch_group_t group = dispatch_group_create();
        dispatch_group_enter(group);
        dispatch_release(group);
      },
      testing::KilledBySignal(SIGABRT), "BUG IN CLIENT OF LIBDISPATCH: Group object deallocated");
}

TEST_F(DispatchDeathTest, LeavingAGroupTooOftenAborts) {
  EXPECT_EXIT(dispatch_group_leave(dispatch_group_create()), testing::KilledBySignal(SIGABRT),
              "BUG IN CLIENT OF LIBDISPATCH: Unbalanced call to dispatch_group_leave");
}

TEST_F(DispatchDeathTest, SyncOntoTheOwnQueueAborts) {
  EXPECT_EXIT(
      {
        dispatch_queue_t queue = dispatch_queue_create("own", nullptr);
        dispatch_queue_t other = dispatch_queue_create("other", nullptr);
        dispatch_sync(queue, ^{
          dispatch_sync(other, ^{
            dispatch_sync(queue, ^{
                          });
          });
        });
      },
      testing::KilledBySignal(SIGABRT),
      "BUG IN CLIENT OF LIBDISPATCH: dispatch_sync called on queue already owned");
  EXPECT_EXIT(
      {
        dispatch_queue_t queue = dispatch_queue_create("own", nullptr);
        dispatch_async(queue, ^{
          dispatch_sync(queue, ^{
                        });
        });
        pause();
      },
      testing::KilledBySignal(SIGABRT), "already owned by current thread");
  EXPECT_EXIT(dispatch_sync(dispatch_get_main_queue(),
                            ^{
                            }),
              testing::KilledBySignal(SIGABRT), "already owned by current thread");
}

TEST_F(DispatchDeathTest, ReleasingALoweredSemaphoreAborts) {
  EXPECT_EXIT(
      {
        dispatch_semaphore_t semaphore = dispatch_semaphore_create(1);
        dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW);
        dispatch_release(semaphore);
      },
      testing::KilledBySignal(SIGABRT),
      "BUG IN CLIENT OF LIBDISPATCH: Semaphore object deallocated while in use");
}

TEST_F(DispatchDeathTest, OnceInsideItselfAborts) {
  EXPECT_EXIT(
      {
        static dispatch_once_t once;
        dispatch_once(&once, ^{
          dispatch_once(&once, ^{
                        });
        });
      },
      testing::KilledBySignal(SIGABRT), "trying to lock recursively");
}

TEST_F(DispatchDeathTest, AssertingTheWrongQueueAborts) {
  EXPECT_EXIT(dispatch_assert_queue(dispatch_get_global_queue(0, 0)),
              testing::KilledBySignal(SIGABRT), "expected to execute on the asserted queue");
  EXPECT_EXIT(dispatch_assert_queue_not(dispatch_get_main_queue()),
              testing::KilledBySignal(SIGABRT), "not expected to execute on the asserted queue");
}

TEST_F(DispatchDeathTest, AnExceptionInAWorkersBlockEndsTheProcess) {
  EXPECT_EXIT(
      {
        dispatch_async(dispatch_get_global_queue(0, 0), ^{
          [NSException raise:@"Escaped" format:@"from a worker"];
        });
        pause();
      },
      testing::KilledBySignal(SIGABRT), "uncaught exception 'Escaped', reason: 'from a worker'");
}

TEST_F(DispatchDeathTest, AnExceptionInAMainQueueBlockEndsTheProcess) {
  EXPECT_EXIT(
      {
        dispatch_async(dispatch_get_main_queue(), ^{
          [NSException raise:@"Escaped" format:@"from the main queue"];
        });
        RunLoopUntil(^bool {
          return false;
        });
      },
      testing::KilledBySignal(SIGABRT), "uncaught exception 'Escaped'");
  EXPECT_EXIT(
      {
        dispatch_async(dispatch_get_main_queue(), ^{
          throw 5;
        });
        RunLoopUntil(^bool {
          return false;
        });
      },
      testing::KilledBySignal(SIGABRT), "terminate");
}

TEST_F(DispatchDeathTest, AnExceptionEndsTheProcessThoughTheCallerWouldCatchIt) {
  const auto throws = ^{
    throw 5;
  };
  const auto raises = ^{
    [NSException raise:@"Escaped" format:@"from a block that is waited for"];
  };
  EXPECT_EXIT(
      {
        try {
          dispatch_sync(dispatch_get_global_queue(0, 0), throws);
        } catch (int) {
          exit(0);
        }
      },
      testing::KilledBySignal(SIGABRT), "terminate");
  EXPECT_EXIT(
      {
        @try {
          dispatch_barrier_sync(dispatch_get_global_queue(0, 0), raises);
        } @catch (NSException *) {
          exit(0);
        }
      },
      testing::KilledBySignal(SIGABRT), "uncaught exception 'Escaped'");
  EXPECT_EXIT(
      {
        static dispatch_once_t once;
        @try {
          dispatch_once(&once, raises);
        } @catch (NSException *) {
          exit(0);
        }
      },
      testing::KilledBySignal(SIGABRT), "uncaught exception 'Escaped'");
}

// Callers are compiled without a way out by an exception, as they are on a Mac.
static_assert(noexcept(dispatch_async(dispatch_get_main_queue(), dispatch_block_t())));
static_assert(noexcept(dispatch_sync(dispatch_queue_t(), dispatch_block_t())));
static_assert(noexcept(dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 0), dispatch_queue_t(),
                                      dispatch_block_t())));
static_assert(noexcept(dispatch_once(nullptr, dispatch_block_t())));
static_assert(noexcept(dispatch_group_wait(dispatch_group_create(), DISPATCH_TIME_FOREVER)));
static_assert(noexcept(dispatch_semaphore_signal(dispatch_semaphore_create(0))));
static_assert(noexcept(dispatch_release(dispatch_queue_t())));

TEST_F(DispatchDeathTest, LoadingTheLibraryStartsNoThread) {
  EXPECT_EXIT(
      {
        fprintf(stderr, "threads %zu\n", ThreadCount());
        exit(0);
      },
      testing::ExitedWithCode(0), "threads 1\n");
}

TEST_F(DispatchDeathTest, AProcessMayExitWhileWorkersRun) {
  EXPECT_EXIT(
      {
        for (int i = 0; i < 8; ++i) {
          dispatch_async(dispatch_get_global_queue(0, 0), ^{
            for (;;) {
              NSAutoreleasePool *pool = [NSAutoreleasePool new];
              [NSString stringWithFormat:@"%d", i];
              dispatch_async(dispatch_get_global_queue(0, 0), ^{
                             });
              [pool release];
            }
          });
        }
        dispatch_after(In(0.001), dispatch_get_main_queue(), ^{
          fputs("leaving\n", stderr);
          exit(0);
        });
        RunLoopUntil(^bool {
          return false;
        });
      },
      testing::ExitedWithCode(0), "leaving");
}

}  // namespace
