#include <CocoaTesting/PlatformVersions.h>

#include <cmath>
#include <cstdlib>

#include <CocoaTesting/LookTest.h>

using look::RunAgain;

class Versions : public look::LookTest {
 protected:
  void TearDown() override {
    PlatformSetAppKitVersionNumber(2487.0);
    PlatformSetOperatingSystemVersion({14, 6, 0});
    look::LookTest::TearDown();
  }
};

static BOOL AtLeast(NSInteger major, NSInteger minor, NSInteger patch = 0) {
  return [[NSProcessInfo processInfo]
      isOperatingSystemAtLeastVersion:(NSOperatingSystemVersion){major, minor, patch}];
}

TEST_F(Versions, AppKitNumberIsOnAppleScaleAndCurrent) {
  EXPECT_GT(floor(NSAppKitVersionNumber), NSAppKitVersionNumber10_14);
}

TEST_F(Versions, AppKitNumberCanBeThatOfAnOlderSystem) {
  PlatformSetAppKitVersionNumber(1349.9);
  EXPECT_EQ(NSAppKitVersionNumber, 1349.9);
  EXPECT_LE(floor(NSAppKitVersionNumber), NSAppKitVersionNumber10_10_Max);
}

TEST_F(Versions, SystemIsNewerThanTenFourteen) {
  EXPECT_TRUE(AtLeast(10, 14));
  EXPECT_TRUE(AtLeast(14, 6));
  EXPECT_FALSE(AtLeast(14, 6, 1));
  EXPECT_FALSE(AtLeast(99, 0));
}

TEST_F(Versions, OlderSystemIsOlderInEveryPart) {
  PlatformSetOperatingSystemVersion({10, 13, 6});
  EXPECT_FALSE(AtLeast(10, 14));
  EXPECT_FALSE(AtLeast(11, 0));
  EXPECT_FALSE(AtLeast(10, 13, 7));
  EXPECT_TRUE(AtLeast(10, 13, 6));
  EXPECT_TRUE(AtLeast(10, 12, 9));
  EXPECT_TRUE(AtLeast(9, 99));
  EXPECT_EQ([[NSProcessInfo processInfo] operatingSystemVersion].minorVersion, 13);
}

TEST_F(Versions, EnvironmentChoosesTheVersions) {
  EXPECT_EQ(RunAgain("PLATFORM_OS_VERSION=10.13 PLATFORM_APPKIT_VERSION=1349.5",
                     "VersionsFromEnvironment.*"),
            0);
}

TEST(VersionsFromEnvironment, IsUsed) {
  if (!getenv("PLATFORM_OS_VERSION")) {
    GTEST_SKIP() << "run again by another test with the variables";
  }
  @autoreleasepool {
    EXPECT_EQ(NSAppKitVersionNumber, 1349.5);
    EXPECT_TRUE(AtLeast(10, 13));
    EXPECT_FALSE(AtLeast(10, 13, 1));
    EXPECT_FALSE(AtLeast(10, 14));
  }
}
