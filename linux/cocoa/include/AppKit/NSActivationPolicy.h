// What kind of application this is.

#ifndef PLATFORM_APPKIT_NSACTIVATIONPOLICY_H
#define PLATFORM_APPKIT_NSACTIVATIONPOLICY_H

#import <AppKit/NSApplication.h>
#import <AppKit/NSRunningApplication.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSApplication (PlatformActivationPolicy)

/// Regular at first. Kept and given back: there is no Dock to be in or not, and every application's
/// windows can become key. Main thread only.
- (NSApplicationActivationPolicy)activationPolicy;

/// Returns YES.
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)policy;

@end

NS_ASSUME_NONNULL_END

#endif
