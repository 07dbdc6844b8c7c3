#include "wire.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace platform::xpc;

namespace {

using Bytes = std::vector<uint8_t>;

const char *Decode(FrameKind kind, const Bytes &payload, Frame *frame) {
  return DecodePayload(kind, payload.data(), payload.size(), frame);
}

/// A message without a reply that has `value` as its only argument.
Bytes Message(const Bytes &value) {
  Bytes payload = {0, 1, 'm', 1};
  payload.insert(payload.end(), value.begin(), value.end());
  return payload;
}

/// A message with every kind of value.
Bytes FullMessage() {
  Writer writer;
  writer.begin(FrameKind::kMessage);
  writer.putNumber(300);
  writer.putText("do:with:");
  writer.putText("v@?C@");
  writer.putNumber(9);
  writer.putTag(Tag::kNil);
  writer.putTag(Tag::kBlock);
  writer.putTag(Tag::kSigned);
  writer.putSigned(INT64_MIN);
  writer.putTag(Tag::kUnsigned);
  writer.putNumber(UINT64_MAX);
  writer.putTag(Tag::kFloating);
  writer.putDouble(-0.5);
  writer.putTag(Tag::kString);
  writer.putText("gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80");
  writer.putTag(Tag::kArray);
  writer.putNumber(8);
  writer.putTag(Tag::kNull);
  writer.putTag(Tag::kTrue);
  writer.putTag(Tag::kFalse);
  writer.putTag(Tag::kSignedNumber);
  writer.putSigned(-1);
  writer.putTag(Tag::kUnsignedNumber);
  writer.putNumber(1);
  writer.putTag(Tag::kFloatingNumber);
  writer.putDouble(1e300);
  writer.putTag(Tag::kDate);
  writer.putDouble(1);
  writer.putTag(Tag::kURL);
  writer.putText("http://a.example/");
  writer.putTag(Tag::kDictionary);
  writer.putNumber(1);
  writer.putTag(Tag::kString);
  writer.putText("key");
  writer.putTag(Tag::kData);
  writer.putText(std::string("\0\xff", 2));
  writer.putTag(Tag::kError);
  writer.putTag(Tag::kString);
  writer.putText("domain");
  writer.putTag(Tag::kSigned);
  writer.putSigned(-7);
  writer.putTag(Tag::kNil);
  EXPECT_TRUE(writer.finish());
  return Bytes(writer.data() + kHeaderSize, writer.data() + writer.size());
}

Bytes Nested(unsigned depth) {
  Bytes value;
  for (unsigned i = 0; i < depth; ++i) {
    value.insert(value.end(), {0x22, 1});
  }
  value.push_back(0x25);
  return Message(value);
}

}  // namespace

TEST(XPCWire, HeaderSaysLengthAndKind) {
  Writer writer;
  writer.begin(FrameKind::kReply);
  writer.putBytes("abc", 3);
  ASSERT_TRUE(writer.finish());
  ASSERT_EQ(writer.size(), kHeaderSize + 3);
  uint32_t length = 0;
  FrameKind kind;
  EXPECT_EQ(DecodeHeader(writer.data(), &length, &kind), nullptr);
  EXPECT_EQ(length, 3u);
  EXPECT_EQ(kind, FrameKind::kReply);
}

TEST(XPCWire, WrongHeadersAreRefused) {
  uint32_t length = 0;
  FrameKind kind;
  const uint8_t good[8] = {0, 0, 0, 0, 'P', 'X', 1, 1};
  EXPECT_EQ(DecodeHeader(good, &length, &kind), nullptr);
  for (int i = 4; i < 8; ++i) {
    uint8_t bad[8];
    std::memcpy(bad, good, sizeof bad);
    bad[i] ^= 0x10;
    EXPECT_NE(DecodeHeader(bad, &length, &kind), nullptr) << i;
  }
  uint8_t large[8] = {0, 0x10, 0, 4, 'P', 'X', 1, 1};
  EXPECT_EQ(DecodeHeader(large, &length, &kind), nullptr);
  large[0] = 1;
  EXPECT_NE(DecodeHeader(large, &length, &kind), nullptr);
}

TEST(XPCWire, EveryKindOfValueIsRead) {
  Bytes payload = FullMessage();
  Frame frame;
  ASSERT_EQ(Decode(FrameKind::kMessage, payload, &frame), nullptr);
  EXPECT_EQ(frame.request, 300u);
  EXPECT_EQ(frame.selector, "do:with:");
  EXPECT_EQ(frame.replySignature, "v@?C@");
  EXPECT_EQ(frame.argumentCount, 9u);
  ASSERT_EQ(frame.items.size(), 9u + 8 + 2 + 3);
  EXPECT_EQ(frame.items[1].tag, Tag::kBlock);
  EXPECT_EQ(frame.items[2].asSigned, INT64_MIN);
  EXPECT_EQ(frame.items[3].asUnsigned, UINT64_MAX);
  EXPECT_EQ(frame.items[4].asFloating, -0.5);
  EXPECT_EQ(frame.items[5].text(), "gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80");
  EXPECT_EQ(frame.items[6].size, 8u);
  EXPECT_EQ(frame.items[10].asSigned, -1);
  EXPECT_EQ(frame.items[12].asFloating, 1e300);
  EXPECT_EQ(frame.items[15].size, 1u);
  EXPECT_EQ(frame.items[17].text(), std::string("\0\xff", 2));
  EXPECT_EQ(frame.items[20].asSigned, -7);
}

TEST(XPCWire, EveryShorterPayloadIsRefused) {
  Bytes payload = FullMessage();
  Frame frame;
  for (size_t length = 0; length < payload.size(); ++length) {
    EXPECT_NE(DecodePayload(FrameKind::kMessage, payload.data(), length, &frame), nullptr)
        << length;
  }
  payload.push_back(0);
  EXPECT_NE(Decode(FrameKind::kMessage, payload, &frame), nullptr);
}

TEST(XPCWire, ChangedBytesNeverLeadOutsideTheFrame) {
  const Bytes payload = FullMessage();
  Frame frame;
  for (size_t at = 0; at < payload.size(); ++at) {
    for (unsigned value = 0; value < 256; ++value) {
      Bytes changed = payload;
      changed[at] = static_cast<uint8_t>(value);
      if (Decode(FrameKind::kMessage, changed, &frame)) {
        continue;
      }
      for (const Item &item : frame.items) {
        if (item.tag != Tag::kString && item.tag != Tag::kData && item.tag != Tag::kURL) {
          continue;
        }
        const auto *bytes = reinterpret_cast<const uint8_t *>(item.bytes);
        EXPECT_GE(bytes, changed.data());
        EXPECT_LE(bytes + item.size, changed.data() + changed.size());
      }
    }
  }
}

TEST(XPCWire, MalformedValuesAreRefused) {
  struct Case {
    const char *what;
    Bytes value;
  };
  const Case cases[] = {
      {"unknown tag", {0x7f}},
      {"overlong UTF-8", {0x20, 2, 0xc0, 0x80}},
      {"overlong in three bytes", {0x20, 3, 0xe0, 0x80, 0x80}},
      {"surrogate in UTF-8", {0x20, 3, 0xed, 0xa0, 0x80}},
      {"above U+10FFFF", {0x20, 4, 0xf4, 0x90, 0x80, 0x80}},
      {"lone continuation", {0x20, 1, 0x80}},
      {"truncated sequence", {0x20, 2, 'a', 0xc3}},
      {"invalid URL bytes", {0x27, 1, 0xff}},
      {"text longer than the frame", {0x20, 0xff, 0xff, 0xff, 0xff, 0x0f, 'a'}},
      {"length of 64 bits", {0x20, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 1}},
      {"number of 65 bits", {0x11, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2}},
      {"endless number", {0x11, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0}},
      {"array that counts too much", {0x22, 0xff, 0xff, 0xff, 0x7f, 0x25}},
      {"dictionary without a value", {0x23, 1, 0x25}},
      {"nil in an array", {0x22, 1, 0x00}},
      {"block in an array", {0x22, 1, 0x01}},
      {"scalar in an array", {0x22, 1, 0x11, 1}},
      {"error without a domain", {0x24, 0x25, 0x10, 0, 0x00}},
      {"error with a number object as code", {0x24, 0x20, 1, 'd', 0x2a, 0, 0x00}},
      {"error with a block as user info", {0x24, 0x20, 1, 'd', 0x10, 0, 0x01}},
      {"error with an array as user info", {0x24, 0x20, 1, 'd', 0x10, 0, 0x22, 0}},
      {"truncated double", {0x12, 0, 0, 0, 0}},
  };
  Frame frame;
  ASSERT_EQ(Decode(FrameKind::kMessage, Message({0x20, 2, 0xc3, 0xbc}), &frame), nullptr);
  for (const Case &one : cases) {
    EXPECT_NE(Decode(FrameKind::kMessage, Message(one.value), &frame), nullptr) << one.what;
  }
}

TEST(XPCWire, MalformedMessagesAreRefused) {
  Frame frame;
  EXPECT_EQ(Decode(FrameKind::kMessage, {0, 1, 'm', 0}, &frame), nullptr);
  EXPECT_NE(Decode(FrameKind::kMessage, {}, &frame), nullptr);
  EXPECT_NE(Decode(FrameKind::kMessage, {0, 0, 0}, &frame), nullptr) << "no selector";
  EXPECT_NE(Decode(FrameKind::kMessage, {0, 1, '\n', 0}, &frame), nullptr) << "control character";
  EXPECT_NE(Decode(FrameKind::kMessage, {0, 1, 0xc3, 0}, &frame), nullptr) << "not ASCII";
  EXPECT_NE(Decode(FrameKind::kMessage, {1, 1, 'm', 0, 0}, &frame), nullptr) << "no signature";
  EXPECT_NE(Decode(FrameKind::kReply, {0, 0}, &frame), nullptr) << "no request";
  Bytes many = {0, 1, 'm', kMaximumArguments + 1};
  many.resize(many.size() + kMaximumArguments + 1, 0);
  EXPECT_NE(Decode(FrameKind::kMessage, many, &frame), nullptr) << "too many arguments";
}

TEST(XPCWire, NestingIsLimited) {
  Frame frame;
  EXPECT_EQ(Decode(FrameKind::kMessage, Nested(kMaximumDepth), &frame), nullptr);
  EXPECT_NE(Decode(FrameKind::kMessage, Nested(kMaximumDepth + 1), &frame), nullptr);
  EXPECT_NE(Decode(FrameKind::kMessage, Nested(1000000), &frame), nullptr);
}

TEST(XPCWire, ManySmallValuesAreLimited) {
  // An array of as many nulls as go into 4 MiB.
  Bytes value = {0x22, 0x80, 0x80, 0x80, 2};
  value.resize(value.size() + (size_t{4} << 20), 0x25);
  Frame frame;
  EXPECT_NE(Decode(FrameKind::kMessage, Message(value), &frame), nullptr);
}

TEST(XPCWire, OnlyPayloadsUpToTheLimitAreFinished) {
  Writer writer;
  writer.begin(FrameKind::kReply);
  std::string most(kMaximumPayload, 'x');
  writer.putBytes(most.data(), most.size());
  EXPECT_TRUE(writer.finish());
  writer.putByte(0);
  EXPECT_FALSE(writer.finish());
}

TEST(XPCWire, UTF16BecomesUTF8) {
  const uint16_t units[] = {'a', 0xe4, 0x20ac, 0xd83d, 0xde00, 0xd800, 'b', 0xdc00, 0, 0xd83d};
  Writer writer;
  writer.putUtF16(units, sizeof units / sizeof *units);
  std::string expected(
      "a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\xef\xbf\xbd"
      "b\xef\xbf\xbd\0\xef\xbf\xbd",
      1 + 2 + 3 + 4 + 3 + 1 + 3 + 1 + 3);
  ASSERT_EQ(writer.size(), expected.size() + 1);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(writer.data()) + 1, expected.size()),
            expected);
}
