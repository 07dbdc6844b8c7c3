// Frames as a bare socket sends them.

#ifndef XPC_TEST_FRAMES_H
#define XPC_TEST_FRAMES_H

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "wire.h"

namespace xpc_test {

using Bytes = std::vector<uint8_t>;

inline Bytes Finished(platform::xpc::Writer *writer) {
  EXPECT_TRUE(writer->finish());
  return Bytes(writer->data(), writer->data() + writer->size());
}

/// The reply to `request` with one argument.
inline Bytes ReplyFrame(uint64_t request, const Bytes &argument) {
  platform::xpc::Writer writer;
  writer.begin(platform::xpc::FrameKind::kReply);
  writer.putNumber(request);
  writer.putNumber(1);
  writer.putBytes(argument.data(), argument.size());
  return Finished(&writer);
}

inline Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes &part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

}  // namespace xpc_test

#endif
