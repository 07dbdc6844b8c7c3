// Arbitrary bytes as frames: what the decoder lets through is sound, and written again reads the
// same.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "wire.h"

using namespace platform::xpc;

namespace {

void Expect(bool condition, const char *what) {
  if (condition) {
    return;
  }
  std::fprintf(stderr, "frame_fuzzer: %s\n", what);
  std::abort();
}

bool HasBytes(Tag tag) { return tag == Tag::kString || tag == Tag::kURL || tag == Tag::kData; }

/// Goes through the items of a frame as the decoding of objects does.
class Walk {
 public:
  Walk(const Frame &frame, const std::vector<uint8_t> &payload, Writer *writer)
      : next_(frame.items.data()),
        end_(next_ + frame.items.size()),
        begin_(reinterpret_cast<const char *>(payload.data())),
        size_(payload.size()),
        writer_(writer) {}

  void arguments(uint32_t count) {
    Expect(count <= kMaximumArguments, "there are too many arguments");
    for (; count; --count) {
      value(0, true);
    }
    Expect(next_ == end_, "items follow the last argument");
  }

  void inside(std::string_view text) {
    if (text.empty()) {
      return;
    }
    Expect(text.data() >= begin_ && text.data() + text.size() <= begin_ + size_,
           "a text lies outside the payload");
  }

 private:
  void value(unsigned depth, bool isArgument) {
    Expect(next_ != end_, "an item is missing");
    Expect(depth <= kMaximumDepth, "items are nested too deeply");
    const Item &item = *next_++;
    writer_->putTag(item.tag);
    switch (item.tag) {
      case Tag::kNil:
      case Tag::kBlock:
        Expect(isArgument, "a collection holds no object");
        break;
      case Tag::kNull:
      case Tag::kFalse:
      case Tag::kTrue:
        break;
      case Tag::kSigned:
        Expect(isArgument, "a collection holds a scalar");
        [[fallthrough]];
      case Tag::kSignedNumber:
        writer_->putSigned(item.asSigned);
        break;
      case Tag::kUnsigned:
        Expect(isArgument, "a collection holds a scalar");
        [[fallthrough]];
      case Tag::kUnsignedNumber:
        writer_->putNumber(item.asUnsigned);
        break;
      case Tag::kFloating:
        Expect(isArgument, "a collection holds a scalar");
        [[fallthrough]];
      case Tag::kFloatingNumber:
      case Tag::kDate:
        writer_->putDouble(item.asFloating);
        break;
      case Tag::kString:
      case Tag::kURL:
      case Tag::kData:
        inside(item.text());
        writer_->putText(item.text());
        break;
      case Tag::kArray:
      case Tag::kDictionary: {
        writer_->putNumber(item.size);
        uint64_t count = uint64_t{item.size} * (item.tag == Tag::kDictionary ? 2 : 1);
        for (; count; --count) {
          value(depth + 1, false);
        }
        break;
      }
      case Tag::kError:
        Expect(next_ != end_ && next_->tag == Tag::kString, "an error has no domain");
        value(depth + 1, false);
        Expect(next_ != end_ && next_->tag == Tag::kSigned, "an error has no code");
        value(depth + 1, true);
        Expect(next_ != end_ && (next_->tag == Tag::kDictionary || next_->tag == Tag::kNil),
               "an error has no user info");
        value(depth + 1, true);
        break;
      default:
        Expect(false, "an item has an unknown tag");
    }
  }

  const Item *next_;
  const Item *const end_;
  const char *const begin_;
  const size_t size_;
  Writer *const writer_;
};

bool IsSame(const Item &one, const Item &other) {
  if (one.tag != other.tag || one.size != other.size) {
    return false;
  }
  return HasBytes(one.tag) ? one.text() == other.text() : one.asUnsigned == other.asUnsigned;
}

void Check(FrameKind kind, const uint8_t *bytes, size_t length) {
  // A copy of its own: the sanitizer sees what is read beyond its end.
  const std::vector<uint8_t> payload(bytes, bytes + length);
  Frame frame;
  if (DecodePayload(kind, payload.data(), payload.size(), &frame)) {
    return;
  }

  Expect(frame.kind == kind, "the kind has changed");
  Expect(frame.items.size() <= kMaximumItems, "there are too many items");
  Writer writer;
  writer.begin(kind);
  writer.putNumber(frame.request);
  if (kind == FrameKind::kMessage) {
    Expect(!frame.selector.empty(), "a message has no selector");
    Expect(frame.replySignature.empty() == (frame.request == 0), "a reply has no signature");
    writer.putText(frame.selector);
    if (frame.request) {
      writer.putText(frame.replySignature);
    }
  } else {
    Expect(frame.request != 0, "a reply names no request");
  }
  writer.putNumber(frame.argumentCount);
  Walk walk(frame, payload, &writer);
  walk.inside(frame.selector);
  walk.inside(frame.replySignature);
  walk.arguments(frame.argumentCount);
  Expect(writer.finish(), "a frame that was read cannot be written");

  uint32_t againLength = 0;
  FrameKind againKind;
  Frame again;
  Expect(!DecodeHeader(writer.data(), &againLength, &againKind), "the header written is wrong");
  Expect(againKind == kind && againLength == writer.size() - kHeaderSize,
         "the header written says something else");
  Expect(!DecodePayload(kind, writer.data() + kHeaderSize, againLength, &again),
         "the payload written is wrong");
  Expect(again.request == frame.request && again.selector == frame.selector &&
             again.replySignature == frame.replySignature &&
             again.argumentCount == frame.argumentCount && again.items.size() == frame.items.size(),
         "the frame written says something else");
  for (size_t i = 0; i < frame.items.size(); ++i) {
    Expect(IsSame(frame.items[i], again.items[i]), "an item written says something else");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
  // As a stream, the way a channel takes it apart …
  for (size_t at = 0; size - at >= kHeaderSize;) {
    uint32_t length = 0;
    FrameKind kind;
    if (DecodeHeader(bytes + at, &length, &kind)) {
      break;
    }
    Expect(length <= kMaximumPayload, "a frame is too large");
    at += kHeaderSize;
    if (length > size - at) {
      break;
    }
    Check(kind, bytes + at, length);
    at += length;
  }
  // … and as bare payloads, where no length has to fit first.
  Check(FrameKind::kMessage, bytes, size);
  Check(FrameKind::kReply, bytes, size);
  return 0;
}
