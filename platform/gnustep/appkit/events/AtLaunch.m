#import "AtLaunch.h"

#import <AppKit/AppKit.h>
#include <stdlib.h>

enum { kMostInstalls = 8 };

static void (*sInstalls[kMostInstalls])(void);
static int sCount;

void PlatformInstallAtLaunch(void (*install)(void)) {
  if (sCount == kMostInstalls) abort();
  sInstalls[sCount++] = install;
}

@interface PlatformAtLaunch : NSObject
@end

@implementation PlatformAtLaunch

+ (void)load {
  [[NSNotificationCenter defaultCenter] addObserver:self
                                           selector:@selector(applicationWillFinishLaunching:)
                                               name:NSApplicationWillFinishLaunchingNotification
                                             object:nil];
}

+ (void)applicationWillFinishLaunching:(NSNotification *)notification {
  // Anybody may post the notification again.
  [[NSNotificationCenter defaultCenter] removeObserver:self];
  for (int i = 0; i < sCount; i++) sInstalls[i]();
}

@end
