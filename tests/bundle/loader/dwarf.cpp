#include "dwarf.h"

namespace macho {

namespace {

constexpr uint8_t kRbp = 6, kReturnAddress = 16;
constexpr uint8_t kDefineFrame = 0x0c;  // DW_CFA_def_cfa
constexpr uint8_t kOffset = 0x80;       // DW_CFA_offset, with the register in the lower bits
constexpr uint8_t kAbsolute = 0x00;     // DW_EH_PE_absptr

}  // namespace

template <typename T>
void FrameDescriptions::Put(T value) {
  const auto *from = reinterpret_cast<const uint8_t *>(&value);
  bytes_.insert(bytes_.end(), from, from + sizeof value);
}

void FrameDescriptions::PutUleb(uint64_t value) {
  do {
    Put<uint8_t>((value & 0x7f) | (value > 0x7f ? 0x80 : 0));
    value >>= 7;
  } while (value);
}

size_t FrameDescriptions::Begin() {
  Put<uint32_t>(0);
  return bytes_.size();
}

/// Fills in the length; the next one begins at a multiple of eight bytes.
void FrameDescriptions::End(size_t begin) {
  while (bytes_.size() % 8) {
    Put<uint8_t>(0);  // DW_CFA_nop
  }
  const auto length = static_cast<uint32_t>(bytes_.size() - begin);
  std::memcpy(&bytes_[begin - sizeof length], &length, sizeof length);
}

size_t FrameDescriptions::Common(uintptr_t personality) {
  const auto [known, isNew] = commons_.try_emplace(personality, bytes_.size());
  if (!isNew) {
    return known->second;
  }
  const size_t begin = Begin();
  Put<uint32_t>(0);  // What it is.
  Put<uint8_t>(1);   // The version.
  for (const char *c = personality ? "zPLR" : "zR"; Put(*c), *c; ++c) {
  }
  PutUleb(1);          // The unit of code.
  Put<uint8_t>(0x78);  // The unit of data: -8.
  Put(kReturnAddress);
  PutUleb(personality ? 11 : 1);
  if (personality) {
    Put(kAbsolute);
    Put(personality);
    Put(kAbsolute);  // How each function's data is written.
  }
  Put(kAbsolute);  // How addresses are.
  // The frame is %rbp + 16 once %rbp is set up, which it is wherever an exception can pass.
  Put(kDefineFrame);
  PutUleb(kRbp);
  PutUleb(16);
  Put<uint8_t>(kOffset | kRbp);
  PutUleb(2);
  Put<uint8_t>(kOffset | kReturnAddress);
  PutUleb(1);
  End(begin);
  return known->second;
}

void FrameDescriptions::Add(const Function &function, uintptr_t data) {
  const size_t common = Common(function.personality);
  const size_t begin = Begin();
  Put<uint32_t>(static_cast<uint32_t>(bytes_.size() - common));
  Put(function.start);
  Put(function.end - function.start);
  PutUleb(function.personality ? sizeof data : 0);
  if (function.personality) {
    Put(data);
  }
  for (const SavedRegister &saved : function.saved) {
    Put<uint8_t>(kOffset | saved.number);
    PutUleb(saved.distance);
  }
  End(begin);
}

std::vector<uint8_t> FrameDescriptions::Finish() && {
  Put<uint32_t>(0);
  return std::move(bytes_);
}

}  // namespace macho
