// State kept beside a view, window, cell or application.
//
// A category can add no instance variables, a fragile class layout forbids changing the toolkit's,
// and libobjc has no associated objects.

#ifndef PLATFORM_APPKIT_LOOK_ATTACHEDSTATE_H
#define PLATFORM_APPKIT_LOOK_ATTACHEDSTATE_H

#import <Foundation/NSArray.h>
#import <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

#ifdef __cplusplus
extern "C" {
#endif

/// The value kept for `owner` under `key`, or nil. Any thread.
id _Nullable PlatformAttachedState(id owner, NSString *key);

/// Keeps `value`, retained, under `key` until it is replaced or the owner is deallocated; nil
/// removes it. The owner is an NSView, an NSWindow, an NSCell or the application: for others
/// nothing would clean up. A copy of a cell starts without.
void PlatformSetAttachedState(id owner, NSString *key, id _Nullable value);

/// Everyone who has a value under `key`, in no particular order. Main thread only, for an owner may
/// be going away on another.
NSArray *PlatformOwnersOfAttachedState(NSString *key);

#ifdef __cplusplus
}
#endif

NS_ASSUME_NONNULL_END

#endif
