#include "imports.h"

#include <dlfcn.h>
#include <objc/runtime.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "exceptions.h"

namespace macho {

namespace {

/// Functions of the C library and of the layer that take and give the same as on a Mac. Many others
/// have the same name and other structures or numbers.
constexpr std::array<std::string_view, 22> kSameInLibSystem = {
    "__Block_object_assign",
    "__Block_object_dispose",
    "__NSConcreteGlobalBlock",
    "__NSConcreteStackBlock",
    "__Unwind_Resume",
    "___stack_chk_fail",
    "_dispatch_get_global_queue",
    "_dispatch_group_create",
    "_dispatch_group_enter",
    "_dispatch_group_leave",
    "_dispatch_group_wait",
    "_dispatch_once",
    "_dispatch_release",
    "_dispatch_retain",
    "_dispatch_time",
    "_floor",
    "_getpid",
    "_memcmp",
    "_pthread_mutex_destroy",
    "_pthread_mutex_init",
    "_pthread_mutex_unlock",
    "_strlen",
};
constexpr std::array<std::string_view, 1> kSameInLibobjc = {"_objc_enumerationMutation"};

template <size_t count>
bool Has(const std::array<std::string_view, count> &names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

/// What follows `prefix` in a symbol, or nullptr.
const char *After(std::string_view prefix, const Import &import) {
  return import.symbol.substr(0, prefix.size()) == prefix ? import.symbol.data() + prefix.size()
                                                          : nullptr;
}

void CheckIsCompared(const Import &import) {
  const bool isOfLibSystem = import.library == "libSystem.B.dylib";
  const bool isOfLibobjc = import.library == "libobjc.A.dylib";
  if ((isOfLibSystem && !Has(kSameInLibSystem, import.symbol)) ||
      (isOfLibobjc && !Has(kSameInLibobjc, import.symbol))) {
    Refuse("%s of %s may be something else here (see tests/bundle/loader/imports.cpp)",
           import.symbol.data(), import.library.data());
  }
}

}  // namespace

uintptr_t Resolve(const Import &import) {
  static const char *const weak = std::getenv("PELLMAR_MACHO_WEAK");
  if (import.isWeak && weak && std::strcmp(weak, "null") == 0) {
    return 0;
  }

  for (const StandIn *list : {kObjectiveCStandIns, kSystemStandIns}) {
    for (; list->symbol; ++list) {
      if (import.symbol == list->symbol) {
        return reinterpret_cast<uintptr_t>(list->address);
      }
    }
  }
  if (const char *name = After("_OBJC_CLASS_$_", import)) {
    return reinterpret_cast<uintptr_t>(objc_lookUpClass(name));
  }
  if (const char *name = After("_OBJC_METACLASS_$_", import)) {
    const id one = reinterpret_cast<id>(objc_lookUpClass(name));
    return reinterpret_cast<uintptr_t>(one ? object_getClass(one) : Nil);
  }
  if (const char *name = After("_OBJC_EHTYPE_$_", import)) {
    return ExceptionTypeOf(name);
  }
  CheckIsCompared(import);
  // The global scope: what is preloaded comes first, then the layer's libraries, then GNUstep's.
  const char *name = After("_", import);
  return name ? reinterpret_cast<uintptr_t>(dlsym(RTLD_DEFAULT, name)) : 0;
}

}  // namespace macho
