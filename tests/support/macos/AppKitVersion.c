// AppKit's version number as this program's own code sees it. The program's symbol is taken before
// that of the framework, which AppKit itself keeps using. AppKit's headers would declare it
// constant.

#include <dlfcn.h>

double NSAppKitVersionNumber;

void PlatformSetAppKitVersionNumber(double number) { NSAppKitVersionNumber = number; }

__attribute__((constructor)) static void TakeRealVersion(void) {
  void *appKit = dlopen("/System/Library/Frameworks/AppKit.framework/AppKit", RTLD_LAZY);
  NSAppKitVersionNumber = *(const double *)dlsym(appKit, "NSAppKitVersionNumber");
}
