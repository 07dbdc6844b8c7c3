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
    // A program without a bundle is none whose windows could become key, until it says so.
    [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory];
    [NSApp finishLaunching];
    [NSApp activateIgnoringOtherApps:YES];
  }
  void TearDown() override { [pool_ release]; }

 private:
  NSAutoreleasePool *pool_ = nil;
};

const auto *const sEnvironment = testing::AddGlobalTestEnvironment(new ApplicationEnvironment());

}  // namespace
