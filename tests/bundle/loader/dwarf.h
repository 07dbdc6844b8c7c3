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
  void Add(const Function &function, uintptr_t data);
  /// Ends them with the zero by which the unwinder knows the end.
  std::vector<uint8_t> Finish() &&;

 private:
  /// Where the description of what functions of this personality have in common begins.
  size_t Common(uintptr_t personality);
  template <typename T>
  void Put(T value);
  void PutUleb(uint64_t value);
  size_t Begin();
  void End(size_t begin);

  std::vector<uint8_t> bytes_;
  std::map<uintptr_t, size_t> commons_;
};

}  // namespace macho

#endif
