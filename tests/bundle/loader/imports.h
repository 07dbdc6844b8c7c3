// What the image's imports are bound to here.

#ifndef MACHO_IMPORTS_H
#define MACHO_IMPORTS_H

#include "fixups.h"

namespace macho {

/// A stand-in, a class of the runtime, or what the process has under the name without its
/// underscore; 0 if there is none. Refuses functions of libSystem and libobjc that nobody has
/// compared.
///
/// With PELLMAR_MACHO_WEAK=null in the environment whatever may be missing is: the oldest system
/// that the image is for lacks just that.
uintptr_t Resolve(const Import &import);

/// A name and what it stands for.
struct StandIn {
  const char *symbol;
  const void *address;
};

/// What libobjc has on a Mac and gcc's runtime has not, or not the same.
extern const StandIn kObjectiveCStandIns[];
/// The same of libSystem and the frameworks.
extern const StandIn kSystemStandIns[];
// Both end with a null symbol.

}  // namespace macho

#endif
