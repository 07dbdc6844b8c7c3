// The part of CoreFoundation that this system uses, under its own names. Every CF type is the
// Foundation class of the same name behind a plain pointer, so that a cast takes one to the other.
// Debian 12 has no CoreFoundation beside GNUstep; the one of Debian 13 has no distributed center.

#ifndef PLATFORM_COREFOUNDATION_H
#define PLATFORM_COREFOUNDATION_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wnullability-extension"
#pragma clang assume_nonnull begin
#endif

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef const void *CFTypeRef;
typedef const struct __CFAllocator *CFAllocatorRef;
typedef const struct __CFString *CFStringRef;
typedef const struct __CFDictionary *CFDictionaryRef;
typedef struct __CFNotificationCenter *CFNotificationCenterRef;

typedef signed long CFIndex;
typedef unsigned long CFOptionFlags;
typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef uint32_t UInt32;
typedef UInt32 CFStringEncoding;
typedef CFStringRef CFNotificationName;

/// The only allocator there is; memory comes from `malloc` whatever is passed.
#define kCFAllocatorDefault ((CFAllocatorRef _Nullable)0)

enum { kCFStringEncodingUTF8 = 0x08000100 };

/// One reference more; returns `object`, which must not be NULL. Any thread.
CFTypeRef CFRetain(CFTypeRef object);
/// One reference less; `object` must not be NULL. Any thread.
void CFRelease(CFTypeRef object);

/// Returns a new string the caller owns, or NULL where the bytes are not valid in `encoding`, of
/// which only kCFStringEncodingUTF8 is known. Any thread.
CFStringRef _Nullable CFStringCreateWithCString(CFAllocatorRef _Nullable allocator,
                                                const char *text, CFStringEncoding encoding);
CFStringRef _Nullable CFStringCreateWithBytes(CFAllocatorRef _Nullable allocator,
                                              const UInt8 *bytes, CFIndex length,
                                              CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);

/// A constant string, which is never freed.
#ifdef __OBJC__
#define CFSTR(text) ((CFStringRef) @text)
#endif

/// Returns the value under `key`, which stays the dictionary's, or NULL. Any thread.
const void *_Nullable CFDictionaryGetValue(CFDictionaryRef dictionary, const void *key);

// Distributed notifications

typedef CFIndex CFNotificationSuspensionBehavior;
enum {
  CFNotificationSuspensionBehaviorDrop = 1,
  CFNotificationSuspensionBehaviorCoalesce = 2,
  CFNotificationSuspensionBehaviorHold = 3,
  CFNotificationSuspensionBehaviorDeliverImmediately = 4,
};

enum {
  kCFNotificationDeliverImmediately = 1ul << 0,
  kCFNotificationPostToAllSessions = 1ul << 1,
};

/// @param object  What the notification was posted with: for a distributed one always a string.
/// @param userInfo  NULL when it was posted without.
typedef void (*CFNotificationCallback)(CFNotificationCenterRef center, void *_Nullable observer,
                                       CFNotificationName _Nullable name,
                                       const void *_Nullable object,
                                       CFDictionaryRef _Nullable userInfo);

/// Returns the center that reaches the other processes of this user, through GNUstep's `gdnc`.
CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void);

/// Calls `callback` on the main run loop for every notification that fits, in the order posted.
/// Returns at once: the daemon is looked for in the background, as often as it takes and without a
/// word in the log, so notifications posted within the first moments may be missed. Any thread.
/// @param observer  Given to the callback, and what it is removed by; never dereferenced.
/// @param name  The name to listen for, or NULL for every name.
/// @param object  A string to listen for, or NULL for every one; copied. Where both are NULL
/// nothing
///   is added: the daemon does not hand out everything.
void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void *_Nullable observer,
                                     CFNotificationCallback callback, CFStringRef _Nullable name,
                                     const void *_Nullable object,
                                     CFNotificationSuspensionBehavior suspensionBehavior);

/// Takes back what was added for `observer` with this name (NULL: any) and object (NULL: any).
/// Returns at once. On the main thread no callback comes after the return; from another thread one
/// may still be under way. Any thread.
void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center,
                                        const void *_Nullable observer,
                                        CFNotificationName _Nullable name,
                                        const void *_Nullable object);

/// Sends a notification to every observer in every process of this user. Returns at once; one that
/// is longer than 24 MiB, or cannot be handed to the daemon within ten seconds, is dropped. A
/// process that exits first hands over what it has posted, but takes no more than a tenth of a
/// second for it. `userInfo` may hold property-list objects only. Any thread.
void CFNotificationCenterPostNotification(CFNotificationCenterRef center, CFNotificationName name,
                                          const void *_Nullable object,
                                          CFDictionaryRef _Nullable userInfo,
                                          Boolean deliverImmediately);
void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center,
                                                     CFNotificationName name,
                                                     const void *_Nullable object,
                                                     CFDictionaryRef _Nullable userInfo,
                                                     CFOptionFlags options);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#if defined(__clang__)
#pragma clang assume_nonnull end
#pragma clang diagnostic pop
#endif

#endif
