// Which macOS this layer passes for.
//
// A current one: 14.6, with AppKit 2487. The environment can ask for another before the process
// starts (PLATFORM_OS_VERSION=10.13, PLATFORM_APPKIT_VERSION=1349.9), a test while it runs.

#ifndef COCOA_TESTING_PLATFORMVERSIONS_H
#define COCOA_TESTING_PLATFORMVERSIONS_H

#import <Foundation/NSOperatingSystemVersion.h>

#ifdef __cplusplus
extern "C" {
#endif

/// What NSProcessInfo answers from now on. Any thread, but not at the same time as a question.
void PlatformSetOperatingSystemVersion(NSOperatingSystemVersion version);

/// What NSAppKitVersionNumber is from now on. A function that has read it may not read it again.
void PlatformSetAppKitVersionNumber(double number);

#ifdef __cplusplus
}
#endif

#endif
