#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>
#include <objc/runtime.h>

#import "AquaTheme.h"
#import "Install.h"

typedef id (*InitMethod)(id, SEL);

/// The toolkit's own method below the category's. It is called once a process, and before
/// NSApplication has a dispatch table that could be changed, so the list of the class's methods is
/// asked for it: the category's comes first there, what it hides after it.
static InitMethod HiddenInit(void) {
  InitMethod hidden = NULL;
  unsigned int count = 0;
  Method *methods = class_copyMethodList([NSApplication class], &count);
  for (unsigned int i = 0; i < count; i++)
    if (sel_isEqual(method_getName(methods[i]), @selector(init)))
      hidden = (InitMethod)method_getImplementation(methods[i]);
  free(methods);
  return hidden;
}

static void RegisterDefaults(void) {
  // Only where neither the user nor the host has set another. A Mac has no icon of a running
  // program on the desktop.
  [[NSUserDefaults standardUserDefaults] registerDefaults:@{
    @"NSFont" : @"Inter-Regular",
    @"NSBoldFont" : @"Inter-Bold",
    @"NSFontSize" : @"13",
    @"GSFontHinting" : @"17",
    @"GSSuppressAppIcon" : @"YES",
  }];
}

// Taking the place of the toolkit's method is the purpose.
#pragma clang diagnostic ignored "-Wobjc-protocol-method-implementation"

@implementation NSApplication (PlatformLook)

- (id)init {
  @autoreleasepool {
    RegisterDefaults();
  }
  self = HiddenInit()(self, _cmd);
  @autoreleasepool {
    PlatformInstallLayerDrawing();
    PlatformInstallImageInterpolation();
    PlatformInstallImageNames();
    PlatformInstallObservedDealloc();
    PlatformInstallFocusVisibility();
    PlatformInstallButtons();
    PlatformInstallServerOfWindow();
    [PlatformAquaTheme install];
  }
  return self;
}

@end
