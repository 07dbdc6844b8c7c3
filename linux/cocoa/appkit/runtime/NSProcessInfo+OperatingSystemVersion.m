#import <CocoaTesting/PlatformVersions.h>
#import <Foundation/NSOperatingSystemVersion.h>
#include <stdio.h>
#include <stdlib.h>

static NSOperatingSystemVersion sVersion = {14, 6, 0};

void PlatformSetOperatingSystemVersion(NSOperatingSystemVersion version) { sVersion = version; }

__attribute__((constructor)) static void ReadEnvironment(void) {
  const char *wanted = getenv("PLATFORM_OS_VERSION");
  int numbers[3] = {0, 0, 0};
  if (wanted && sscanf(wanted, "%d.%d.%d", &numbers[0], &numbers[1], &numbers[2]) >= 1) {
    sVersion = (NSOperatingSystemVersion){numbers[0], numbers[1], numbers[2]};
  }
}

@implementation NSProcessInfo (PlatformOperatingSystemVersion)

- (NSOperatingSystemVersion)operatingSystemVersion {
  return sVersion;
}

- (BOOL)isOperatingSystemAtLeastVersion:(NSOperatingSystemVersion)version {
  if (sVersion.majorVersion != version.majorVersion) {
    return sVersion.majorVersion > version.majorVersion;
  }
  if (sVersion.minorVersion != version.minorVersion) {
    return sVersion.minorVersion > version.minorVersion;
  }
  return sVersion.patchVersion >= version.patchVersion;
}

@end
