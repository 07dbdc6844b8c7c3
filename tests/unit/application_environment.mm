//
// Makes the application object before the first test: windows and fonts need one.
//

#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

namespace {

class ApplicationEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    [NSApplication sharedApplication];
    [NSApp finishLaunching];
  }
  void TearDown() override { [pool_ release]; }

 private:
  NSAutoreleasePool *pool_ = nil;
};

const auto *const sEnvironment = testing::AddGlobalTestEnvironment(new ApplicationEnvironment());

}  // namespace
