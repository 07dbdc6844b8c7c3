#include "dwarf.h"

namespace macho {

namespace {

constexpr uint8_t kRbp = 6, kReturnAddress = 16;
constexpr uint8_t kDefineFrame = 0x0c;  // DW_CFA_def_cfa
constexpr uint8_t kOffset = 0x80;       // DW_CFA_offset, with the register in the lower bits
constexpr uint8_t kAbsolute = 0x00;     // DW_EH_PE_absptr

}  // namespace

template <typename T>
void FrameDescriptions::put(T value) {
  const auto *from = reinterpret_cast<const uint8_t *>(&value);
  bytes_.insert(bytes_.end(), from, from + sizeof value);
}

void FrameDescriptions::putUleb(uint64_t value) {
  do {
    put<uint8_t>((value & 0x7f) | (value > 0x7f ? 0x80 : 0));
    value >>= 7;
  } while (value);
}

size_t FrameDescriptions::begin() {
  put<uint32_t>(0);
  return bytes_.size();
}

/// Fills in the length; the next one begins at a multiple of eight bytes.
void FrameDescriptions::end(size_t begin) {
  while (bytes_.size() % 8) {
    put<uint8_t>(0);  // DW_CFA_nop
  }
  const auto length = static_cast<uint32_t>(bytes_.size() - begin);
  std::memcpy(&bytes_[begin - sizeof length], &length, sizeof length);
}

size_t FrameDescriptions::common(uintptr_t personality) {
  const auto [known, isNew] = commons_.try_emplace(personality, bytes_.size());
  if (!isNew) {
    return known->second;
  }
  const size_t begin = this->begin();
  put<uint32_t>(0);  // What it is.
  put<uint8_t>(1);   // The version.
  for (const char *c = personality ? "zPLR" : "zR"; put(*c), *c; ++c) {
  }
  putUleb(1);          // The unit of code.
  put<uint8_t>(0x78);  // The unit of data: -8.
  put(kReturnAddress);
  putUleb(personality ? 11 : 1);
  if (personality) {
    put(kAbsolute);
    put(personality);
    put(kAbsolute);  // How each function's data is written.
  }
  put(kAbsolute);  // How addresses are.
  // The frame is %rbp + 16 once %rbp is set up, which it is wherever an exception can pass.
  put(kDefineFrame);
  putUleb(kRbp);
  putUleb(16);
  put<uint8_t>(kOffset | kRbp);
  putUleb(2);
  put<uint8_t>(kOffset | kReturnAddress);
  putUleb(1);
  end(begin);
  return known->second;
}

void FrameDescriptions::add(const Function &function, uintptr_t data) {
  const size_t common = this->common(function.personality);
  const size_t begin = this->begin();
  put<uint32_t>(static_cast<uint32_t>(bytes_.size() - common));
  put(function.start);
  put(function.end - function.start);
  putUleb(function.personality ? sizeof data : 0);
  if (function.personality) {
    put(data);
  }
  for (const SavedRegister &saved : function.saved) {
    put<uint8_t>(kOffset | saved.number);
    putUleb(saved.distance);
  }
  end(begin);
}

std::vector<uint8_t> FrameDescriptions::finish() && {
  put<uint32_t>(0);
  return std::move(bytes_);
}

}  // namespace macho
