#import "runtime/NSApplication+Launch.h"

#import <AppKit/AppKit.h>
#include <stdlib.h>

enum { kSMostInstalls = 32 };

static void (*sInstalls[kSMostInstalls])(void);
static int sCount;

void PlatformInstallAtLaunch(void (*install)(void)) {
  if (sCount == kSMostInstalls) {
    abort();
  }
  sInstalls[sCount++] = install;
}

/// Only where neither the user nor the host has set another. A Mac has no icon of a running program
/// on the desktop.
static void RegisterDefaults(void) {
  [[NSUserDefaults standardUserDefaults] registerDefaults:@{
    @"NSFont" : @"Inter-Regular",
    @"NSBoldFont" : @"Inter-Bold",
    @"NSFontSize" : @"13",
    @"GSFontHinting" : @"17",
    @"GSSuppressAppIcon" : @"YES",
  }];
}

@implementation NSApplication (PlatformLaunch)

// As GNUstep's does. Its init sets NSApp, and reads the defaults.
+ (NSApplication *)sharedApplication {
  if (NSApp) {
    return NSApp;
  }
  @autoreleasepool {
    RegisterDefaults();
  }
  (void)[[self alloc] init];
  @autoreleasepool {
    for (int i = 0; i < sCount; i++) {
      sInstalls[i]();
    }
  }
  return NSApp;
}

@end
