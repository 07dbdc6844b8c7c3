// Names of the images that every application has.

#ifndef PLATFORM_APPKIT_NSIMAGENAMES_H
#define PLATFORM_APPKIT_NSIMAGENAMES_H

#import <AppKit/NSImage.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef NSString *NSImageName;

/// The application's own icon, as the main bundle's Info dictionary names it.
extern NSImageName const NSImageNameApplicationIcon;

#ifdef __cplusplus
}
#endif

#endif
