// Bytes of the file that nobody reads past their end.

#ifndef MACHO_BYTES_H
#define MACHO_BYTES_H

#include <cinttypes>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "refusal.h"

namespace macho {

class Bytes {
 public:
  Bytes() = default;
  /// `name` says in a refusal what these bytes are; it is kept as it is.
  Bytes(const void *begin, uint64_t size, const char *name)
      : begin_(static_cast<const uint8_t *>(begin)), size_(size), name_(name) {}

  uint64_t size() const { return size_; }
  const char *name() const { return name_; }

  Bytes part(uint64_t offset, uint64_t size, const char *name) const {
    check(offset, size);
    return {begin_ + offset, size, name};
  }

  template <typename T>
  T read(uint64_t offset) const {
    static_assert(std::is_trivially_copyable_v<T>);
    check(offset, sizeof(T));
    T value;
    std::memcpy(&value, begin_ + offset, sizeof value);
    return value;
  }

  /// The zero-terminated text there.
  const char *text(uint64_t offset) const {
    check(offset, 1);
    if (!std::memchr(begin_ + offset, 0, size_ - offset)) {
      Refuse("%s: a text at 0x%" PRIx64 " has no end", name_, offset);
    }
    return reinterpret_cast<const char *>(begin_ + offset);
  }

 private:
  void check(uint64_t offset, uint64_t size) const {
    if (offset > size_ || size > size_ - offset) {
      Refuse("%s: %" PRIu64 " bytes at 0x%" PRIx64 " are not there, of 0x%" PRIx64, name_, size,
             offset, size_);
    }
  }

  const uint8_t *begin_ = nullptr;
  uint64_t size_ = 0;
  const char *name_ = "";
};

/// Reads bytes one after the other.
class Cursor {
 public:
  explicit Cursor(Bytes bytes, uint64_t offset = 0) : bytes_(bytes), offset_(offset) {}

  bool isAtEnd() const { return offset_ >= bytes_.size(); }
  uint64_t offset() const { return offset_; }

  template <typename T>
  T read() {
    const T value = bytes_.read<T>(offset_);
    offset_ += sizeof(T);
    return value;
  }

  const char *text() {
    const char *text = bytes_.text(offset_);
    offset_ += std::strlen(text) + 1;
    return text;
  }

  uint64_t uleb() {
    unsigned shift;
    return leb(&shift);
  }

  int64_t sleb() {
    unsigned shift;
    uint64_t value = leb(&shift);
    if (shift < 64 && value >> (shift - 1) & 1) {
      value |= ~uint64_t{0} << shift;
    }
    return static_cast<int64_t>(value);
  }

 private:
  /// Returns the bits of a LEB128 number and how many there are of them.
  uint64_t leb(unsigned *shift) {
    uint64_t value = 0;
    for (*shift = 0; *shift < 64;) {
      const auto byte = read<uint8_t>();
      value |= uint64_t{byte & 0x7fu} << *shift;
      *shift += 7;
      if (!(byte & 0x80)) {
        return value;
      }
    }
    Refuse("%s: a number has more than 64 bits", bytes_.name());
  }

  Bytes bytes_;
  uint64_t offset_;
};

}  // namespace macho

#endif
