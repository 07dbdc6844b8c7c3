// Rebase and bind opcodes (<mach-o/loader.h>): adds the image's address to what points into it, and
// puts what imports are bound to into the places that refer to them.

#ifndef MACHO_FIXUPS_H
#define MACHO_FIXUPS_H

#include <functional>
#include <string_view>

#include "image.h"

namespace macho {

struct Import {
  std::string_view symbol;   ///< With the leading underscore of C; zero-terminated.
  std::string_view library;  ///< Its file's name; empty where any image of the process will do.
  bool isWeak;               ///< May be missing.
};

/// Returns an import's address, or 0 for one that may be missing.
using Resolver = std::function<uintptr_t(const Import &)>;

void ApplyFixups(const Image &image, const Resolver &resolve);

}  // namespace macho

#endif
