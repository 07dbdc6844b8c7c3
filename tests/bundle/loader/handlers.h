// What a function does with exceptions: its language-specific data (the tables of GCC's
// .gcc_except_tab, which clang writes for Mach-O too), read in full.

#ifndef MACHO_HANDLERS_H
#define MACHO_HANDLERS_H

#include <cstdint>
#include <vector>

#include "compact_unwind.h"

namespace macho {

struct Action {
  int64_t selector;  ///< What the landing pad tells actions by; 0 for cleaning up.
  uintptr_t type;    ///< What is caught; 0 for everything.
};

/// Calls within [start, end), and where an exception of theirs lands: nowhere if that is 0.
struct CallSite {
  uintptr_t start, end, landing;
  std::vector<Action> actions;  ///< In the order to be tried; none for cleaning up.
};

/// The call sites of a function that has handlers, in the order of their addresses.
std::vector<CallSite> ReadHandlers(const Image &image, const Function &function);

}  // namespace macho

#endif
