// What the loader does not understand, or finds malformed, it refuses: the load fails with a
// message that names it, and nothing of the file runs.

#ifndef MACHO_REFUSAL_H
#define MACHO_REFUSAL_H

#include <stdexcept>

namespace macho {

class Refusal : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Throws a Refusal with a text as of printf.
[[noreturn]] void Refuse(const char *format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace macho

#endif
