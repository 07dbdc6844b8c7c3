// Apple's associated objects, as far as the library uses them. GNUstep's runtime has none, a
// category can add no instance variables, and other code depends on the size of GNUstep's
// classes.

#import <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
  OBJC_ASSOCIATION_RETAIN_NONATOMIC = 1,
  OBJC_ASSOCIATION_COPY_NONATOMIC = 3,
} objc_AssociationPolicy;

/// The value that `object` has under `key`, which is compared by address; nil for none and for a
/// nil object. Any thread, but nothing keeps the value from being replaced on another one.
id _Nullable objc_getAssociatedObject(id _Nullable object, const void *key);

/// Keeps `value` under `key` until it is replaced or the object is deallocated; nil removes it. The
/// object is an instance of a subclass of NSObject, not of NSObject itself. Any thread.
void objc_setAssociatedObject(id object, const void *key, id _Nullable value,
                              objc_AssociationPolicy policy);

#ifdef __cplusplus
}
#endif

NS_ASSUME_NONNULL_END
