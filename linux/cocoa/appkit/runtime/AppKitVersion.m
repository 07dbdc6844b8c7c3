#import <CocoaTesting/PlatformVersions.h>
#include <stdlib.h>

// GNUstep defines this symbol as well, on a scale that ended years ago. This library comes
// before it in the search order of everything linked against it, so this is the one that is found.
// It is not const, or it would lie in memory that cannot be written.
double NSAppKitVersionNumber = 2487.0;

void PlatformSetAppKitVersionNumber(double number) { NSAppKitVersionNumber = number; }

__attribute__((constructor)) static void ReadEnvironment(void) {
  const char *wanted = getenv("PLATFORM_APPKIT_VERSION");
  double number = wanted ? strtod(wanted, NULL) : 0;
  if (number > 0) {
    NSAppKitVersionNumber = number;
  }
}
