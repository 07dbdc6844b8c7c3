#include <cstring>
#include <new>

#include "wire.h"

namespace platform::xpc {

namespace {

/// Thrown within a decoder.
struct Malformed {
  const char *problem;
};

/// Strict: no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsUTF8(const uint8_t *bytes, size_t length) {
  static constexpr uint32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
  size_t i = 0;
  while (i < length) {
    const uint8_t lead = bytes[i++];
    if (lead < 0x80) {
      continue;
    }
    const unsigned more = lead >= 0xf0 ? 3 : lead >= 0xe0 ? 2 : 1;
    if (lead < 0xc2 || lead > 0xf4 || length - i < more) {
      return false;
    }
    uint32_t code = lead & (0x3f >> more);
    for (unsigned k = 0; k < more; ++k, ++i) {
      if ((bytes[i] & 0xc0) != 0x80) {
        return false;
      }
      code = code << 6 | (bytes[i] & 0x3f);
    }
    if (code < kLeast[more] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) {
      return false;
    }
  }
  return true;
}

class Decoder {
 public:
  Decoder(const uint8_t *bytes, size_t length, std::vector<Item> *items)
      : at_(bytes), end_(bytes + length), items_(items) {}

  uint64_t number() {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      const uint8_t byte = *take(1, "a number is truncated");
      if (shift == 63 && byte > 1) {
        break;
      }
      value |= static_cast<uint64_t>(byte & 0x7f) << shift;
      if (!(byte & 0x80)) {
        return value;
      }
    }
    throw Malformed{"a number has more than 64 bits"};
  }

  /// A name: short, printable, ASCII.
  std::string_view name() {
    const uint64_t length = number();
    if (length == 0 || length > kMaximumName) {
      throw Malformed{"a name has a wrong length"};
    }
    std::string_view name(reinterpret_cast<const char *>(take(length, "a name is truncated")),
                          length);
    for (char c : name) {
      if (c <= ' ' || c > '~') {
        throw Malformed{"a name has unprintable characters"};
      }
    }
    return name;
  }

  void arguments(uint64_t count) {
    if (count > kMaximumArguments) {
      throw Malformed{"too many arguments"};
    }
    for (; count; --count) {
      value(0, true);
    }
    if (left()) {
      throw Malformed{"bytes follow the last argument"};
    }
  }

 private:
  size_t left() const { return static_cast<size_t>(end_ - at_); }

  const uint8_t *take(uint64_t length, const char *problem) {
    if (length > left()) {
      throw Malformed{problem};
    }
    const uint8_t *taken = at_;
    at_ += length;
    return taken;
  }

  void value(unsigned depth, bool isArgument) {
    if (depth > kMaximumDepth) {
      throw Malformed{"objects are nested too deeply"};
    }
    if (items_->size() >= kMaximumItems) {
      throw Malformed{"too many values"};
    }
    Item item;
    item.tag = static_cast<Tag>(*take(1, "a value is truncated"));
    item.size = 0;
    item.asUnsigned = 0;
    unsigned elements = 0;  ///< For each that a collection counts.
    switch (item.tag) {
      case Tag::kNil:
      case Tag::kBlock:
        if (!isArgument) {
          throw Malformed{"a collection holds no object"};
        }
        break;
      case Tag::kNull:
      case Tag::kFalse:
      case Tag::kTrue:
      case Tag::kError:
        break;
      case Tag::kSigned:
      case Tag::kUnsigned:
      case Tag::kFloating:
        if (!isArgument) {
          throw Malformed{"a collection holds a scalar"};
        }
        [[fallthrough]];
      case Tag::kSignedNumber:
      case Tag::kUnsignedNumber:
      case Tag::kFloatingNumber:
      case Tag::kDate:
        scalar(&item);
        break;
      case Tag::kString:
      case Tag::kURL:
      case Tag::kData:
        bytes(&item);
        break;
      case Tag::kArray:
      case Tag::kDictionary: {
        elements = item.tag == Tag::kDictionary ? 2 : 1;
        const uint64_t count = number();
        if (count > left() / elements) {
          throw Malformed{"a collection counts more than it holds"};
        }
        item.size = static_cast<uint32_t>(count);
        break;
      }
      default:
        throw Malformed{"a value has an unknown tag"};
    }
    items_->push_back(item);
    if (item.tag == Tag::kError) {
      error(depth + 1);
    }
    for (uint64_t left = uint64_t{elements} * item.size; left; --left) {
      value(depth + 1, false);
    }
  }

  void error(unsigned depth) {
    expect(Tag::kString, Tag::kString, "an error has no domain");
    value(depth, false);
    expect(Tag::kSigned, Tag::kSigned, "an error has no code");
    value(depth, true);
    expect(Tag::kDictionary, Tag::kNil, "an error has no user info");
    value(depth, true);
  }

  void expect(Tag one, Tag other, const char *problem) const {
    if (at_ == end_ || (*at_ != static_cast<uint8_t>(one) && *at_ != static_cast<uint8_t>(other))) {
      throw Malformed{problem};
    }
  }

  void scalar(Item *item) {
    if (item->tag == Tag::kUnsigned || item->tag == Tag::kUnsignedNumber) {
      item->asUnsigned = number();
    } else if (item->tag == Tag::kSigned || item->tag == Tag::kSignedNumber) {
      const uint64_t zigzag = number();
      item->asSigned = static_cast<int64_t>((zigzag >> 1) ^ (~(zigzag & 1) + 1));
    } else {
      const uint8_t *bytes = take(8, "a value is truncated");
      uint64_t bits = 0;
      for (unsigned i = 0; i < 8; ++i) {
        bits |= static_cast<uint64_t>(bytes[i]) << (8 * i);
      }
      std::memcpy(&item->asFloating, &bits, sizeof bits);
    }
  }

  void bytes(Item *item) {
    const uint64_t length = number();
    const uint8_t *bytes = take(length, "a text or data is truncated");
    if (item->tag != Tag::kData && !IsUTF8(bytes, length)) {
      throw Malformed{"a text is no UTF-8"};
    }
    item->size = static_cast<uint32_t>(length);
    item->bytes = reinterpret_cast<const char *>(bytes);
  }

  const uint8_t *at_;
  const uint8_t *end_;
  std::vector<Item> *items_;
};

}  // namespace

const char *DecodeHeader(const uint8_t *bytes, uint32_t *length, FrameKind *kind) {
  if (bytes[4] != 'P' || bytes[5] != 'X') {
    return "a frame is malformed";
  }
  if (bytes[6] != 1) {
    return "a frame has an unknown version";
  }
  *kind = static_cast<FrameKind>(bytes[7]);
  if (*kind < FrameKind::kMessage || *kind > FrameKind::kNoReply) {
    return "a frame has an unknown kind";
  }
  *length = bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
  return *length > kMaximumPayload ? "a frame is too large" : nullptr;
}

const char *DecodePayload(FrameKind kind, const uint8_t *payload, size_t length, Frame *frame) {
  *frame = {};
  frame->kind = kind;
  if (length > kMaximumPayload) {
    return "a frame is too large";
  }
  try {
    Decoder decoder(payload, length, &frame->items);
    frame->request = decoder.number();
    if (kind == FrameKind::kMessage) {
      frame->selector = decoder.name();
      if (frame->request) {
        frame->replySignature = decoder.name();
      }
    } else if (!frame->request) {
      throw Malformed{"a reply names no request"};
    }
    const uint64_t count = decoder.number();
    decoder.arguments(count);
    frame->argumentCount = static_cast<uint32_t>(count);
  } catch (const Malformed &malformed) {
    return malformed.problem;
  } catch (const std::bad_alloc &) {
    return "there is no memory for a frame";
  }
  return nullptr;
}

}  // namespace platform::xpc
