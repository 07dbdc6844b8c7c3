// Finding a class by its name. Compiled code does that for every message to a class; the runtime
// computes a hash of the name and compares each time, which makes an eighth of what a usage event
// costs. Here the last class that was found from the same place is tried first.

#include <objc/runtime.h>
#include <stdatomic.h>
#include <stdint.h>
#include <string.h>

enum { kPlaces = 1024 };

static _Atomic(Class) sFound[kPlaces];

/// By the name's address, for compiled code has each name at one place. What is there may be the
/// class of another name all the same.
static _Atomic(Class) *PlaceOf(const char *name) {
  const uintptr_t address = (uintptr_t)name;
  return &sFound[(address ^ (address >> 10)) % kPlaces];
}

static Class FoundBefore(const char *name) {
  Class found = atomic_load_explicit(PlaceOf(name), memory_order_relaxed);
  return found && strcmp(class_getName(found), name) == 0 ? found : Nil;
}

static Class Keep(const char *name, Class found) {
  if (found) atomic_store_explicit(PlaceOf(name), found, memory_order_relaxed);
  return found;
}

// The two functions that compilers call, in the runtime's place; the second ends the process where
// there is no such class.

Class objc_lookup_class(const char *name);
Class objc_get_class(const char *name);

Class objc_lookup_class(const char *name) {
  Class found = FoundBefore(name);
  return found ? found : Keep(name, (Class)objc_getClass(name));
}

Class objc_get_class(const char *name) {
  Class found = FoundBefore(name);
  return found ? found : Keep(name, (Class)objc_getRequiredClass(name));
}
