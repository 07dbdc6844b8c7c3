// Method swizzling: replaces a method of GNUstep and returns the original implementation.

#import <Foundation/NSObject.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Any method: its real type is known where it is called.
typedef void (*PlatformFunction)(void);

// Both replace for good and return what was called before, which may be a superclass's. Not for
// +load: libobjc writes the new method of a class that is not initialized yet into the dispatch
// table that all such classes share, and from then on none of them is initialized when this method
// is its first. So the class is initialized here.

PlatformFunction PlatformReplaceMethod(Class target, SEL selector, PlatformFunction replacement);
PlatformFunction PlatformReplaceClassMethod(Class target, SEL selector,
                                            PlatformFunction replacement);

#ifdef __cplusplus
}
#endif
