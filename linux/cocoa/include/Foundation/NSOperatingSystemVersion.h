// The version of the operating system as NSProcessInfo tells it.

#ifndef PLATFORM_FOUNDATION_NSOPERATINGSYSTEMVERSION_H
#define PLATFORM_FOUNDATION_NSOPERATINGSYSTEMVERSION_H

#import <Foundation/NSProcessInfo.h>

NS_ASSUME_NONNULL_BEGIN

typedef struct {
  NSInteger majorVersion;
  NSInteger minorVersion;
  NSInteger patchVersion;
} NSOperatingSystemVersion;

@interface NSProcessInfo (PlatformOperatingSystemVersion)

/// The macOS that this layer passes for.
@property (readonly) NSOperatingSystemVersion operatingSystemVersion;

/// Whether that macOS is this version or a later one.
///
/// The compiler's @available cannot take its place here: for this system it is always true.
- (BOOL)isOperatingSystemAtLeastVersion:(NSOperatingSystemVersion)version;

@end

NS_ASSUME_NONNULL_END

#endif
