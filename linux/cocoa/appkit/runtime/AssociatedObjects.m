#import "runtime/AssociatedObjects.h"

#import <Foundation/NSException.h>
#import <Foundation/NSMapTable.h>
#include <objc/runtime.h>
#include <pthread.h>

#import "runtime/MethodReplacement.h"

typedef void (*DeallocMethod)(id, SEL);

static pthread_mutex_t sLock = PTHREAD_MUTEX_INITIALIZER;
// By object: an NSMapTable of the values by key.
static NSMapTable *sAssociations;
// By the topmost class below NSObject: the dealloc that was replaced there. Replacing NSObject's
// own would rebuild the dispatch tables of all classes while other threads are using them.
static NSMapTable *sDeallocs;

static Class TopmostClass(id object) {
  Class class = object_getClass(object);
  while (class_getSuperclass(class_getSuperclass(class))) {
    class = class_getSuperclass(class);
  }
  return class;
}

static void Dealloc(id object, SEL selector) {
  pthread_mutex_lock(&sLock);
  DeallocMethod dealloc = (DeallocMethod)NSMapGet(sDeallocs, TopmostClass(object));
  NSMapTable *values = [(NSMapTable *)NSMapGet(sAssociations, object) retain];
  NSMapRemove(sAssociations, object);
  pthread_mutex_unlock(&sLock);
  // Outside the lock: the dealloc of a value may come back here.
  [values release];
  dealloc(object, selector);
}

/// Under the lock.
static void ObserveDealloc(id object) {
  Class class = TopmostClass(object);
  if (NSMapGet(sDeallocs, class)) {
    return;
  }
  PlatformFunction dealloc =
      PlatformReplaceMethod(class, @selector(dealloc), (PlatformFunction)Dealloc);
  NSMapInsert(sDeallocs, class, (void *)dealloc);
}

static NSMapTable *NewMapTable(BOOL ownsValues) {
  return NSCreateMapTable(
      NSNonOwnedPointerMapKeyCallBacks,
      ownsValues ? NSObjectMapValueCallBacks : NSNonOwnedPointerMapValueCallBacks, 8);
}

id objc_getAssociatedObject(id object, const void *key) {
  if (!object) {
    return nil;
  }
  pthread_mutex_lock(&sLock);
  NSMapTable *values = sAssociations ? NSMapGet(sAssociations, object) : nil;
  id value = values ? NSMapGet(values, key) : nil;
  pthread_mutex_unlock(&sLock);
  return value;
}

void objc_setAssociatedObject(id object, const void *key, id value, objc_AssociationPolicy policy) {
  NSCParameterAssert(class_getSuperclass(object_getClass(object)));
  id kept = policy == OBJC_ASSOCIATION_COPY_NONATOMIC ? [value copy] : [value retain];
  pthread_mutex_lock(&sLock);
  if (!sAssociations) {
    sAssociations = NewMapTable(YES);
    sDeallocs = NewMapTable(NO);
  }
  ObserveDealloc(object);
  NSMapTable *values = NSMapGet(sAssociations, object);
  if (!values) {
    values = NewMapTable(YES);
    NSMapInsert(sAssociations, object, values);
    [values release];
  }
  id old = [(id)NSMapGet(values, key) retain];
  if (kept) {
    NSMapInsert(values, key, kept);
  } else {
    NSMapRemove(values, key);
  }
  pthread_mutex_unlock(&sLock);
  [kept release];
  [old release];
}
