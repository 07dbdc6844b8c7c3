// Functions of Apple's Objective-C runtime over those of gcc's.

#include <objc/message.h>
#include <objc/runtime.h>

#include "exceptions.h"
#include "imports.h"

extern "C" {
void macho_objc_msgSend();
void macho_objc_msgSend_stret();
void macho_objc_msgSendSuper2();
void objc_setProperty(id self, SEL selector, ptrdiff_t offset, id value, BOOL isAtomic,
                      BOOL copies);
}

namespace {

id Send(id receiver, SEL selector) {
  const IMP code = objc_msg_lookup(receiver, selector);
  return reinterpret_cast<id (*)(id, SEL)>(code)(receiver, selector);
}

id Alloc(Class one) {
  static const SEL alloc = sel_registerName("alloc");
  return Send(reinterpret_cast<id>(one), alloc);
}

id Retain(id object) {
  static const SEL retain = sel_registerName("retain");
  return Send(object, retain);
}

void Release(id object) {
  static const SEL release = sel_registerName("release");
  Send(object, release);
}

id Autorelease(id object) {
  static const SEL autorelease = sel_registerName("autorelease");
  return Send(object, autorelease);
}

id PoolPush() {
  static const Class pool = static_cast<Class>(objc_getClass("NSAutoreleasePool"));
  static const SEL init = sel_registerName("init");
  return Send(Alloc(pool), init);
}

void SetNonatomic(id self, SEL selector, id value, ptrdiff_t offset) {
  objc_setProperty(self, selector, offset, value, NO, NO);
}

void SetNonatomicCopy(id self, SEL selector, id value, ptrdiff_t offset) {
  objc_setProperty(self, selector, offset, value, NO, YES);
}

struct SuperOfCurrent {
  id receiver;
  Class current;
};

/// Records of the image refer to it, but only Apple's runtime reads it.
const char sUnread[16] = {};

}  // namespace

/// For objc_msgSendSuper2, which is told the class that the method is of, not the one to begin
/// with.
extern "C" __attribute__((visibility("hidden"))) IMP macho_lookup_super(const SuperOfCurrent *super,
                                                                        SEL selector) {
  struct objc_super asked = {super->receiver, class_getSuperclass(super->current)};
  return objc_msg_lookup_super(&asked, selector);
}

namespace macho {

const StandIn kObjectiveCStandIns[] = {
    {"_objc_msgSend", reinterpret_cast<void *>(&macho_objc_msgSend)},
    {"_objc_msgSend_stret", reinterpret_cast<void *>(&macho_objc_msgSend_stret)},
    {"_objc_msgSendSuper2", reinterpret_cast<void *>(&macho_objc_msgSendSuper2)},
    {"_objc_alloc", reinterpret_cast<void *>(&Alloc)},
    {"_objc_retain", reinterpret_cast<void *>(&Retain)},
    {"_objc_release", reinterpret_cast<void *>(&Release)},
    {"_objc_autorelease", reinterpret_cast<void *>(&Autorelease)},
    {"_objc_autoreleasePoolPush", reinterpret_cast<void *>(&PoolPush)},
    // Releasing a pool releases those that were made since, as popping it does.
    {"_objc_autoreleasePoolPop", reinterpret_cast<void *>(&Release)},
    {"_objc_setProperty_nonatomic", reinterpret_cast<void *>(&SetNonatomic)},
    {"_objc_setProperty_nonatomic_copy", reinterpret_cast<void *>(&SetNonatomicCopy)},
    {"_objc_begin_catch", reinterpret_cast<void *>(&macho_objc_begin_catch)},
    {"_objc_end_catch", reinterpret_cast<void *>(&macho_objc_end_catch)},
    {"___objc_personality_v0", reinterpret_cast<void *>(&macho_objc_personality)},
    {"__objc_empty_cache", sUnread},
    {nullptr, nullptr},
};

}  // namespace macho
