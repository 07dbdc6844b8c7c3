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
    // Windows of a program without a bundle cannot become key until it has an activation policy.
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
