// What connections send each other, as plain C++: frames, values, and a decoder that trusts
// nothing.
//
// An encoding of its own: GNUstep's keyed archiver (1.28 and 1.31) writes no secure archives of
// objects outside property lists, knows no reply blocks, and makes classes by the names it reads.
//
// A frame is a header of 8 bytes (length of the payload, 32 bits, little endian; 'P' 'X'; version;
// kind) and the payload:
//   message: request number (0: no reply), selector, with a reply the signature of its block,
//            number of arguments, arguments
//   reply:   request number, number of arguments, arguments
//   no reply: as a reply without arguments
// Counts and lengths are LEB128 numbers, texts a length and UTF-8, values a tag and what the tag
// says (see `Tag`).

#ifndef PLATFORM_XPC_WIRE_H
#define PLATFORM_XPC_WIRE_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace platform::xpc {

constexpr size_t kHeaderSize = 8;
/// Largest payload, either way: an object of 64 MiB and the little that goes around it.
constexpr size_t kMaximumPayload = (size_t{64} << 20) + 4096;
/// Values in one frame: keeps what a frame of the largest size can make of our memory in bounds.
constexpr size_t kMaximumItems = size_t{1} << 20;
constexpr unsigned kMaximumDepth = 64;
constexpr unsigned kMaximumArguments = 16;
constexpr size_t kMaximumName = 255;

enum class FrameKind : uint8_t {
  kMessage = 1,
  kReply = 2,
  kNoReply = 3,  ///< In the place of a reply that will never come.
};

enum class Tag : uint8_t {
  kNil = 0x00,
  kBlock = 0x01,       ///< Stands in the place of a message's reply block.
  kSigned = 0x10,      ///< Scalars. Zigzag LEB128.
  kUnsigned = 0x11,    ///< LEB128.
  kFloating = 0x12,    ///< 8 bytes of a double, little endian.
  kString = 0x20,      ///< Length, UTF-8.
  kData = 0x21,        ///< Length, bytes.
  kArray = 0x22,       ///< Count, objects.
  kDictionary = 0x23,  ///< Count of pairs; key and object of each.
  kError = 0x24,       ///< Domain (kString), code (kSigned), user info (kDictionary or kNil).
  kNull = 0x25,        ///< NSNull.
  kDate = 0x26,        ///< 8 bytes of a double: seconds since the reference date.
  kURL = 0x27,         ///< Length, UTF-8 of the absolute string.
  kFalse = 0x28,       ///< NSNumber from here on.
  kTrue = 0x29,
  kSignedNumber = 0x2a,
  kUnsignedNumber = 0x2b,
  kFloatingNumber = 0x2c,
};

/// One value, in the order of the frame; the elements of a collection follow it.
struct Item {
  Tag tag;
  uint32_t size;  ///< Bytes of a text or of data, elements of an array, pairs of a dictionary.
  union {
    int64_t asSigned;
    uint64_t asUnsigned;
    double asFloating;
    const char *bytes;  ///< In the frame; not terminated.
  };
  std::string_view text() const { return {bytes, size}; }
};

/// A decoded frame. Texts and bytes point into the payload it was decoded from.
struct Frame {
  FrameKind kind;
  uint64_t request;
  std::string_view selector;
  std::string_view replySignature;
  uint32_t argumentCount;
  std::vector<Item> items;
};

/// Reads a header. Returns nullptr and the payload's length and kind, or what is wrong with it.
/// @param bytes  At least kHeaderSize.
const char *DecodeHeader(const uint8_t *bytes, uint32_t *length, FrameKind *kind);

/// Decodes a payload into `frame`. Returns nullptr, or what is wrong with the payload:
/// after nullptr every length, count, nesting and text in `frame` is sound, messages have a
/// selector, and a kBlock item is an argument of its own. Throws nothing.
const char *DecodePayload(FrameKind kind, const uint8_t *payload, size_t length, Frame *frame);

/// Writes a frame. Not to be shared between threads.
class Writer {
 public:
  void begin(FrameKind kind);
  /// Fills in the length. Returns false when the payload is too large to be sent or has too many
  /// values.
  bool finish();

  /// Begins a value.
  void putTag(Tag tag) {
    putByte(static_cast<uint8_t>(tag));
    ++items_;
  }
  void putByte(uint8_t byte) { bytes_.push_back(byte); }
  void putNumber(uint64_t number);
  void putSigned(int64_t number);
  void putDouble(double number);
  void putBytes(const void *bytes, size_t length);
  /// The values that `other` has written.
  void putAll(const Writer &other);
  /// A length and the bytes.
  void putText(std::string_view text);
  /// A length and the UTF-8 of UTF-16 units; a half of a surrogate pair becomes U+FFFD.
  void putUtF16(const uint16_t *units, size_t count);

  const uint8_t *data() const { return bytes_.data(); }
  size_t size() const { return bytes_.size(); }

 private:
  std::vector<uint8_t> bytes_;
  size_t items_ = 0;
};

}  // namespace platform::xpc

#endif
