#include <cstdlib>
#include <cstring>
#include <new>

#include "wire.h"

namespace platform::xpc {

namespace {

constexpr size_t kKeptCapacity = size_t{64} << 10;

}  // namespace

Writer::~Writer() { std::free(buffer_); }

uint8_t *Writer::Grow(size_t more) {
  if (capacity_ - size_ < more) {
    size_t wanted = capacity_ ? capacity_ * 2 : 512;
    while (wanted - size_ < more) wanted *= 2;
    void *larger = std::realloc(buffer_, wanted);
    if (!larger) throw std::bad_alloc();
    buffer_ = static_cast<uint8_t *>(larger);
    capacity_ = wanted;
  }
  uint8_t *place = buffer_ + size_;
  size_ += more;
  return place;
}

void Writer::Trim() {
  if (capacity_ <= kKeptCapacity) return;
  std::free(buffer_);
  buffer_ = nullptr;
  size_ = capacity_ = 0;
}

void Writer::Begin(FrameKind kind) {
  size_ = 0;
  const uint8_t header[kHeaderSize] = {0, 0, 0, 0, 'P', 'X', 1, static_cast<uint8_t>(kind)};
  PutBytes(header, sizeof header);
}

bool Writer::Finish() {
  size_t length = size_ - kHeaderSize;
  if (length > kMaximumPayload) return false;
  for (unsigned i = 0; i < 4; ++i) buffer_[i] = static_cast<uint8_t>(length >> (8 * i));
  return true;
}

void Writer::PutNumber(uint64_t number) {
  while (number >= 0x80) {
    PutByte(static_cast<uint8_t>(number | 0x80));
    number >>= 7;
  }
  PutByte(static_cast<uint8_t>(number));
}

void Writer::PutSigned(int64_t number) {
  PutNumber((static_cast<uint64_t>(number) << 1) ^ static_cast<uint64_t>(number >> 63));
}

void Writer::PutDouble(double number) {
  uint64_t bits;
  std::memcpy(&bits, &number, sizeof bits);
  uint8_t *place = Grow(8);
  for (unsigned i = 0; i < 8; ++i) place[i] = static_cast<uint8_t>(bits >> (8 * i));
}

void Writer::PutBytes(const void *bytes, size_t length) {
  if (length) std::memcpy(Grow(length), bytes, length);
}

void Writer::PutUTF16(const uint16_t *units, size_t count) {
  // Nearly every text is ASCII; these two loops are ones that the compiler makes vectors of.
  uint16_t all = 0;
  for (size_t i = 0; i < count; ++i) all |= units[i];
  if (all < 0x80) {
    PutNumber(count);
    uint8_t *place = count ? Grow(count) : nullptr;
    for (size_t i = 0; i < count; ++i) place[i] = static_cast<uint8_t>(units[i]);
    return;
  }
  size_t length = 0;
  for (size_t i = 0; i < count; ++i) {
    uint16_t unit = units[i];
    if (unit < 0x80) {
      length += 1;
    } else if (unit < 0x800) {
      length += 2;
    } else if (unit >= 0xd800 && unit < 0xdc00 && i + 1 < count && units[i + 1] >= 0xdc00 &&
               units[i + 1] < 0xe000) {
      length += 4;
      ++i;
    } else {
      length += 3;
    }
  }
  PutNumber(length);
  if (!length) return;
  uint8_t *place = Grow(length);
  for (size_t i = 0; i < count; ++i) {
    uint32_t code = units[i];
    if (code < 0x80) {
      *place++ = static_cast<uint8_t>(code);
      continue;
    }
    if (code < 0x800) {
      *place++ = static_cast<uint8_t>(0xc0 | (code >> 6));
      *place++ = static_cast<uint8_t>(0x80 | (code & 0x3f));
      continue;
    }
    if (code >= 0xd800 && code < 0xe000) {
      if (code < 0xdc00 && i + 1 < count && units[i + 1] >= 0xdc00 && units[i + 1] < 0xe000) {
        code = 0x10000 + ((code - 0xd800) << 10) + (units[++i] - 0xdc00u);
        *place++ = static_cast<uint8_t>(0xf0 | (code >> 18));
        *place++ = static_cast<uint8_t>(0x80 | ((code >> 12) & 0x3f));
        *place++ = static_cast<uint8_t>(0x80 | ((code >> 6) & 0x3f));
        *place++ = static_cast<uint8_t>(0x80 | (code & 0x3f));
        continue;
      }
      code = 0xfffd;
    }
    *place++ = static_cast<uint8_t>(0xe0 | (code >> 12));
    *place++ = static_cast<uint8_t>(0x80 | ((code >> 6) & 0x3f));
    *place++ = static_cast<uint8_t>(0x80 | (code & 0x3f));
  }
}

}  // namespace platform::xpc
