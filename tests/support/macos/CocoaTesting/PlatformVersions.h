// Which macOS the tests pass for, on a Mac: what the Linux layer's header of this name declares.

#ifndef TESTS_COCOATESTING_PLATFORMVERSIONS_H
#define TESTS_COCOATESTING_PLATFORMVERSIONS_H

#import <AppKit/AppKit.h>

#ifdef __cplusplus
extern "C" {
#endif

/// What NSProcessInfo answers from now on when it is asked for a version. Main thread.
void PlatformSetOperatingSystemVersion(NSOperatingSystemVersion version);

/// What NSAppKitVersionNumber is from now on for this program's own code. Main thread.
void PlatformSetAppKitVersionNumber(double number);

#ifdef __cplusplus
}
#endif

#endif
