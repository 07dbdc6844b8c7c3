#include <cstring>
#include <string>

#include "wire.h"

namespace platform::xpc {

namespace {

void AppendUTF8(std::string *text, uint32_t code) {
  const unsigned more = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
  static constexpr uint8_t kLeads[] = {0, 0xc0, 0xe0, 0xf0};
  text->push_back(static_cast<char>(kLeads[more] | code >> (6 * more)));
  for (unsigned left = more; left-- > 0;) {
    text->push_back(static_cast<char>(0x80 | (code >> (6 * left) & 0x3f)));
  }
}

}  // namespace

void Writer::begin(FrameKind kind) {
  bytes_ = {0, 0, 0, 0, 'P', 'X', 1, static_cast<uint8_t>(kind)};
}

bool Writer::finish() {
  const size_t length = bytes_.size() - kHeaderSize;
  for (unsigned i = 0; i < 4; ++i) {
    bytes_[i] = static_cast<uint8_t>(length >> (8 * i));
  }
  return length <= kMaximumPayload && items_ <= kMaximumItems;
}

void Writer::putNumber(uint64_t number) {
  for (; number >= 0x80; number >>= 7) {
    putByte(static_cast<uint8_t>(number | 0x80));
  }
  putByte(static_cast<uint8_t>(number));
}

void Writer::putSigned(int64_t number) {
  putNumber((static_cast<uint64_t>(number) << 1) ^ static_cast<uint64_t>(number >> 63));
}

void Writer::putDouble(double number) {
  uint64_t bits;
  std::memcpy(&bits, &number, sizeof bits);
  for (unsigned i = 0; i < 8; ++i) {
    putByte(static_cast<uint8_t>(bits >> (8 * i)));
  }
}

void Writer::putBytes(const void *bytes, size_t length) {
  const auto *first = static_cast<const uint8_t *>(bytes);
  bytes_.insert(bytes_.end(), first, first + length);
}

void Writer::putAll(const Writer &other) {
  putBytes(other.data(), other.size());
  items_ += other.items_;
}

void Writer::putText(std::string_view text) {
  putNumber(text.size());
  putBytes(text.data(), text.size());
}

void Writer::putUtF16(const uint16_t *units, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    uint32_t code = units[i];
    if (code >= 0xd800 && code < 0xe000) {
      const uint32_t next = i + 1 < count ? units[i + 1] : 0;
      if (code < 0xdc00 && next >= 0xdc00 && next < 0xe000) {
        code = 0x10000 + ((code - 0xd800) << 10) + (next - 0xdc00);
        ++i;
      } else {
        code = 0xfffd;
      }
    }
    AppendUTF8(&text, code);
  }
  putText(text);
}

}  // namespace platform::xpc
