// Compact unwind records (__TEXT,__unwind_info; Apple's <mach-o/compact_unwind_encoding.h>): which
// functions there are, how their frames look, and who handles exceptions in them.

#ifndef MACHO_COMPACT_UNWIND_H
#define MACHO_COMPACT_UNWIND_H

#include <cstdint>
#include <vector>

#include "image.h"

namespace macho {

/// A register that a function has saved.
struct SavedRegister {
  uint8_t number;     ///< DWARF's.
  uint32_t distance;  ///< Of its place below the canonical frame address, in words.
};

/// A function with a frame of %rbp, the only kind that is understood.
struct Function {
  uintptr_t start, end;
  std::vector<SavedRegister> saved;
  uintptr_t personality;  ///< What handles exceptions in it, or 0.
  uintptr_t handlers;     ///< Where the data for that is, or 0.
};

/// The functions in the order of their addresses, without those that have no record.
///
/// @param image  With its fixups applied.
std::vector<Function> ReadCompactUnwind(const Image &image);

}  // namespace macho

#endif
