#include <cstring>

#include "wire.h"

namespace platform::xpc {

namespace {

/// Strict: no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsUTF8(const uint8_t *bytes, size_t length) {
  size_t i = 0;
  while (i < length) {
    if (length - i >= 8) {
      uint64_t word;
      std::memcpy(&word, bytes + i, sizeof word);
      if (!(word & 0x8080808080808080u)) {
        i += 8;
        continue;
      }
    }
    uint8_t lead = bytes[i];
    if (lead < 0x80) {
      ++i;
      continue;
    }
    unsigned more;
    uint8_t low = 0x80, high = 0xbf;
    if (lead >= 0xc2 && lead <= 0xdf) {
      more = 1;
    } else if (lead >= 0xe0 && lead <= 0xef) {
      more = 2;
      if (lead == 0xe0) {
        low = 0xa0;
      }
      if (lead == 0xed) {
        high = 0x9f;
      }
    } else if (lead >= 0xf0 && lead <= 0xf4) {
      more = 3;
      if (lead == 0xf0) {
        low = 0x90;
      }
      if (lead == 0xf4) {
        high = 0x8f;
      }
    } else {
      return false;
    }
    if (length - i <= more) {
      return false;
    }
    if (bytes[i + 1] < low || bytes[i + 1] > high) {
      return false;
    }
    for (unsigned k = 2; k <= more; ++k) {
      if ((bytes[i + k] & 0xc0) != 0x80) {
        return false;
      }
    }
    i += more + 1;
  }
  return true;
}

class Decoder {
 public:
  Decoder(const uint8_t *bytes, size_t length, std::vector<Item> *items)
      : at_(bytes), end_(bytes + length), items_(items) {}

  const char *problem() const { return problem_; }

  uint64_t Number() {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      if (at_ == end_) {
        return Fail("a number is truncated");
      }
      uint8_t byte = *at_++;
      if (shift == 63 && byte > 1) {
        return Fail("a number has more than 64 bits");
      }
      value |= static_cast<uint64_t>(byte & 0x7f) << shift;
      if (!(byte & 0x80)) {
        return value;
      }
    }
    return Fail("a number has more than 64 bits");
  }

  /// A name: short, printable, ASCII.
  std::string_view Name() {
    uint64_t length = Number();
    if (problem_) {
      return {};
    }
    if (length == 0 || length > kMaximumName || length > Left()) {
      Fail("a name has a wrong length");
      return {};
    }
    std::string_view name(reinterpret_cast<const char *>(at_), length);
    for (char c : name) {
      if (c <= ' ' || c > '~') {
        Fail("a name has unprintable characters");
        return {};
      }
    }
    at_ += length;
    return name;
  }

  void Values(uint64_t count) {
    if (count > kMaximumArguments) {
      Fail("too many arguments");
      return;
    }
    while (count-- && !problem_) {
      Value(0, true);
    }
    if (!problem_ && at_ != end_) {
      Fail("bytes follow the last argument");
    }
  }

 private:
  size_t Left() const { return static_cast<size_t>(end_ - at_); }

  uint64_t Fail(const char *problem) {
    if (!problem_) {
      problem_ = problem;
    }
    return 0;
  }

  void Value(unsigned depth, bool isArgument) {
    if (depth > kMaximumDepth) {
      Fail("objects are nested too deeply");
      return;
    }
    if (at_ == end_) {
      Fail("a value is truncated");
      return;
    }
    if (items_->size() >= kMaximumItems) {
      Fail("too many values");
      return;
    }
    Item item;
    item.tag = static_cast<Tag>(*at_++);
    item.size = 0;
    item.asUnsigned = 0;
    switch (item.tag) {
      case Tag::kNil:
      case Tag::kBlock:
        if (!isArgument) {
          Fail("a collection holds no object");
        }
        break;
      case Tag::kSigned:
      case Tag::kUnsigned:
      case Tag::kFloating:
        if (!isArgument) {
          Fail("a collection holds a scalar");
        }
        Scalar(&item);
        break;
      case Tag::kNull:
      case Tag::kFalse:
      case Tag::kTrue:
        break;
      case Tag::kSignedNumber:
      case Tag::kUnsignedNumber:
      case Tag::kFloatingNumber:
      case Tag::kDate:
        Scalar(&item);
        break;
      case Tag::kString:
      case Tag::kURL:
      case Tag::kData:
        Bytes(&item);
        break;
      case Tag::kArray:
      case Tag::kDictionary: {
        uint64_t count = Number();
        unsigned each = item.tag == Tag::kDictionary ? 2 : 1;
        if (!problem_ && count > Left() / each) {
          Fail("a collection counts more than it holds");
        }
        if (problem_) {
          return;
        }
        item.size = static_cast<uint32_t>(count);
        items_->push_back(item);
        for (uint64_t left = count * each; left && !problem_; --left) {
          Value(depth + 1, false);
        }
        return;
      }
      case Tag::kError:
        items_->push_back(item);
        Error(depth);
        return;
      default:
        Fail("a value has an unknown tag");
    }
    if (!problem_) {
      items_->push_back(item);
    }
  }

  void Error(unsigned depth) {
    Expect(Tag::kString, Tag::kString, "an error has no domain");
    if (!problem_) {
      Value(depth + 1, false);
    }
    Expect(Tag::kSigned, Tag::kSigned, "an error has no code");
    if (!problem_) {
      Value(depth + 1, true);
    }
    Expect(Tag::kDictionary, Tag::kNil, "an error has no user info");
    if (!problem_) {
      Value(depth + 1, true);
    }
  }

  void Expect(Tag one, Tag other, const char *problem) {
    if (problem_) {
      return;
    }
    if (at_ == end_ || (*at_ != static_cast<uint8_t>(one) && *at_ != static_cast<uint8_t>(other))) {
      Fail(problem);
    }
  }

  void Scalar(Item *item) {
    switch (item->tag) {
      case Tag::kSigned:
      case Tag::kSignedNumber: {
        uint64_t zigzag = Number();
        item->asSigned = static_cast<int64_t>((zigzag >> 1) ^ (~(zigzag & 1) + 1));
        return;
      }
      case Tag::kUnsigned:
      case Tag::kUnsignedNumber:
        item->asUnsigned = Number();
        return;
      default: {
        if (Left() < 8) {
          Fail("a value is truncated");
          return;
        }
        uint64_t bits = 0;
        for (unsigned i = 0; i < 8; ++i) {
          bits |= static_cast<uint64_t>(at_[i]) << (8 * i);
        }
        std::memcpy(&item->asFloating, &bits, sizeof bits);
        at_ += 8;
      }
    }
  }

  void Bytes(Item *item) {
    uint64_t length = Number();
    if (problem_) {
      return;
    }
    if (length > Left()) {
      Fail("a text or data is truncated");
      return;
    }
    if (item->tag != Tag::kData && !IsUTF8(at_, length)) {
      Fail("a text is no UTF-8");
      return;
    }
    item->size = static_cast<uint32_t>(length);
    item->bytes = reinterpret_cast<const char *>(at_);
    at_ += length;
  }

  const uint8_t *at_;
  const uint8_t *end_;
  std::vector<Item> *items_;
  const char *problem_ = nullptr;
};

}  // namespace

const char *DecodeHeader(const uint8_t *bytes, uint32_t *length, FrameKind *kind) {
  if (bytes[4] != 'P' || bytes[5] != 'X') {
    return "a frame is malformed";
  }
  if (bytes[6] != 1) {
    return "a frame has an unknown version";
  }
  if (bytes[7] != static_cast<uint8_t>(FrameKind::kMessage) &&
      bytes[7] != static_cast<uint8_t>(FrameKind::kReply)) {
    return "a frame has an unknown kind";
  }
  *length = bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
  *kind = static_cast<FrameKind>(bytes[7]);
  if (*length > kMaximumPayload) {
    return "a frame is too large";
  }
  return nullptr;
}

const char *DecodePayload(FrameKind kind, const uint8_t *payload, size_t length, Frame *frame) {
  frame->items.clear();
  frame->kind = kind;
  frame->selector = {};
  frame->replySignature = {};
  frame->argumentCount = 0;
  if (length > kMaximumPayload) {
    return "a frame is too large";
  }

  Decoder decoder(payload, length, &frame->items);
  frame->request = decoder.Number();
  if (kind == FrameKind::kMessage) {
    if (!decoder.problem()) {
      frame->selector = decoder.Name();
    }
    if (!decoder.problem() && frame->request) {
      frame->replySignature = decoder.Name();
    }
  } else if (!decoder.problem() && !frame->request) {
    return "a reply names no request";
  }
  uint64_t count = decoder.problem() ? 0 : decoder.Number();
  if (!decoder.problem()) {
    decoder.Values(count);
  }
  if (!decoder.problem()) {
    frame->argumentCount = static_cast<uint32_t>(count);
  }
  return decoder.problem();
}

}  // namespace platform::xpc
