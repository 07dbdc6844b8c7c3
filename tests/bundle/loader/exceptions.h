// Exceptions in functions that were compiled for Apple's Objective-C runtime, between gcc's
// runtime, which throws them, and the unwinder.

#ifndef MACHO_EXCEPTIONS_H
#define MACHO_EXCEPTIONS_H

#include <cstdint>
#include <vector>

#include "handlers.h"

namespace macho {

/// What @catch (NAME *) is compiled to refer to. Only the address counts.
uintptr_t ExceptionTypeOf(const char *className);

/// Refuses what an Objective-C function catches if that is nothing of `ExceptionTypeOf`.
void CheckTypes(const std::vector<CallSite> &sites);

}  // namespace macho

extern "C" {
/// Apple's __objc_personality_v0. Its data are the function's call sites: a
/// std::vector<macho::CallSite>, read when the image was loaded.
void macho_objc_personality();
void macho_objc_begin_catch();
void macho_objc_end_catch();
}

#endif
