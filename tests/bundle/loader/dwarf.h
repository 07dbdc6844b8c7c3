// Call frame information as the unwinder of Linux reads it (the format of .eh_frame).

#ifndef MACHO_DWARF_H
#define MACHO_DWARF_H

#include <map>
#include <utility>
#include <vector>

#include "compact_unwind.h"

namespace macho {

class FrameDescriptions {
 public:
  /// @param data  What the function's personality asks the unwinder for.
  void add(const Function &function, uintptr_t data);
  /// Ends them with the zero by which the unwinder knows the end.
  std::vector<uint8_t> finish() &&;

 private:
  /// Where the description of what functions of this personality have in common begins.
  size_t common(uintptr_t personality);
  template <typename T>
  void put(T value);
  void putUleb(uint64_t value);
  size_t begin();
  void end(size_t begin);

  std::vector<uint8_t> bytes_;
  std::map<uintptr_t, size_t> commons_;
};

}  // namespace macho

#endif
