#import <CocoaTesting/PlatformVersions.h>
#import <objc/runtime.h>

static NSOperatingSystemVersion sVersion;

static BOOL IsAtLeast(id, SEL, NSOperatingSystemVersion asked) {
  if (sVersion.majorVersion != asked.majorVersion) {
    return sVersion.majorVersion > asked.majorVersion;
  }
  if (sVersion.minorVersion != asked.minorVersion) {
    return sVersion.minorVersion > asked.minorVersion;
  }
  return sVersion.patchVersion >= asked.patchVersion;
}

void PlatformSetOperatingSystemVersion(NSOperatingSystemVersion version) {
  sVersion = version;
  Method method =
      class_getInstanceMethod(NSProcessInfo.class, @selector(isOperatingSystemAtLeastVersion:));
  method_setImplementation(method, (IMP)IsAtLeast);
}
