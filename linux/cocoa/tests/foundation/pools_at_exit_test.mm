// An exit with autorelease pools that nobody has let go.

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

@interface PoolsAtExitObject : NSObject
@end

@implementation PoolsAtExitObject

- (void)dealloc {
  std::fputs("deallocated\n", stderr);
  [super dealloc];
}

@end

namespace {

TEST(PoolsAtExit, AreNotLetGo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        [NSAutoreleasePool new];
        [[PoolsAtExitObject new] autorelease];
        [[NSMessagePort new] autorelease];
        [NSAutoreleasePool new];
        std::exit(3);
      },
      testing::ExitedWithCode(3), testing::Eq(""));
}

TEST(PoolsAtExit, AreLetGoAtTheEndOfABlock) {
  testing::internal::CaptureStderr();
  @autoreleasepool {
    [[PoolsAtExitObject new] autorelease];
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "deallocated\n");
}

}  // namespace
