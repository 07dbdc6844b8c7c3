#include <new>

#include "wire.h"

namespace platform::xpc {

namespace {

/// Stores the low bytes of eight units, and returns the bits that any of them has. The compiler
/// makes vectors of it.
uint16_t NarrowEight(const uint16_t *__restrict units, uint8_t *__restrict bytes) {
  uint16_t all = 0;
  for (size_t i = 0; i < 8; ++i) {
    all |= units[i];
    bytes[i] = static_cast<uint8_t>(units[i]);
  }
  return all;
}

}  // namespace

void Writer::Enlarge(size_t more) {
  size_t wanted = capacity_ * 2;
  while (wanted - size_ < more) {
    wanted *= 2;
  }
  void *larger = std::realloc(buffer_ == small_ ? nullptr : buffer_, wanted);
  if (!larger) {
    throw std::bad_alloc();
  }
  if (buffer_ == small_) {
    std::memcpy(larger, small_, size_);
  }
  buffer_ = static_cast<uint8_t *>(larger);
  capacity_ = wanted;
}

void Writer::Begin(FrameKind kind) {
  size_ = 0;
  const uint8_t header[kHeaderSize] = {0, 0, 0, 0, 'P', 'X', 1, static_cast<uint8_t>(kind)};
  PutBytes(header, sizeof header);
}

bool Writer::Finish() {
  size_t length = size_ - kHeaderSize;
  if (length > kMaximumPayload) {
    return false;
  }
  for (unsigned i = 0; i < 4; ++i) {
    buffer_[i] = static_cast<uint8_t>(length >> (8 * i));
  }
  return true;
}

void Writer::PutSigned(int64_t number) {
  PutNumber((static_cast<uint64_t>(number) << 1) ^ static_cast<uint64_t>(number >> 63));
}

void Writer::PutDouble(double number) {
  uint64_t bits;
  std::memcpy(&bits, &number, sizeof bits);
  uint8_t *place = Grow(8);
  for (unsigned i = 0; i < 8; ++i) {
    place[i] = static_cast<uint8_t>(bits >> (8 * i));
  }
}

void Writer::PutUTF16(const uint16_t *units, size_t count) {
  // Nearly every text is ASCII: it is written as such before all of it has been looked at.
  const size_t before = size_;
  PutNumber(count);
  uint8_t *ascii = Grow(count);
  uint16_t all = 0;
  if (count >= 8) {
    for (size_t i = 0; i + 8 < count; i += 8) {
      all |= NarrowEight(units + i, ascii + i);
    }
    all |= NarrowEight(units + count - 8, ascii + count - 8);
  } else {
    for (size_t i = 0; i < count; ++i) {
      all |= units[i];
      ascii[i] = static_cast<uint8_t>(units[i]);
    }
  }
  if (all < 0x80) {
    return;
  }
  size_ = before;

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
  if (!length) {
    return;
  }
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
