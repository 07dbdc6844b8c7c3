#include "signature.h"

#include <gtest/gtest.h>

using namespace platform::xpc;

namespace {

std::unique_ptr<Signature> Method(const char *encoding) {
  return Signature::parse(Signature::Form::kMethod, encoding);
}

std::unique_ptr<Signature> Block(const char *encoding) {
  return Signature::parse(Signature::Form::kBlock, encoding);
}

}  // namespace

TEST(XPCSignature, MethodsAreReadWithOffsetsAndQualifiers) {
  auto signature = Method("Vv40@0:8@16r@24@?32");
  ASSERT_TRUE(signature);
  ASSERT_EQ(signature->arguments().size(), 3u);
  EXPECT_EQ(signature->arguments()[0].kind, TypeKind::kObject);
  EXPECT_EQ(signature->arguments()[2].kind, TypeKind::kBlock);
  EXPECT_EQ(signature->text(), "v@:@@@?");
}

TEST(XPCSignature, BlocksAreReadWithClassNames) {
  auto signature = Block("v28@?0C8@\"NSString\"12@\"NSError\"20");
  ASSERT_TRUE(signature);
  EXPECT_EQ(signature->text(), "v@?C@@");
  EXPECT_TRUE(Block("v@?@?<v@?@\"NSString\">"));
  EXPECT_EQ(Block("v@?@?<v@?@?<v@?>>")->text(), "v@?@?");
}

TEST(XPCSignature, EveryScalarHasItsKindAndSize) {
  auto signature = Block("v@?BcCsSiIlLqQfd");
  ASSERT_TRUE(signature);
  const unsigned sizes[] = {1, 1, 1, 2, 2, 4, 4, 8, 8, 8, 8, 4, 8};
  ASSERT_EQ(signature->arguments().size(), 13u);
  for (size_t i = 0; i < 13; ++i) {
    EXPECT_EQ(signature->arguments()[i].size, sizes[i]) << i;
  }
}

TEST(XPCSignature, WhatCannotTravelIsRefused) {
  for (const char *encoding :
       {"", "v", "v@", "i@:", "@@:", "v@:^v", "v@:*", "v@:{CGPoint=dd}", "v@:[2i]", "v@:v", "v@:#",
        "v@::", "v@:@\"NSString", "v@:@?<v", "v@:cccccccccccccccccccc"}) {
    EXPECT_FALSE(Method(encoding)) << encoding;
  }
  for (const char *encoding : {"", "v", "i@?", "vi", "v@?^v"}) {
    EXPECT_FALSE(Block(encoding)) << encoding;
  }
}

TEST(XPCSignature, OneKindOfArgumentTakesAnotherOfItsKind) {
  const auto takes = [](const char *one, const char *another) {
    return Block(one)->takesKindsOf(*Block(another));
  };
  for (const char *integer : {"v@?B", "v@?c", "v@?C", "v@?q", "v@?Q"}) {
    EXPECT_TRUE(takes(integer, "v@?C")) << integer;
    EXPECT_TRUE(takes("v@?B", integer)) << integer;
    EXPECT_FALSE(takes(integer, "v@?d")) << integer;
    EXPECT_FALSE(takes(integer, "v@?@")) << integer;
    EXPECT_FALSE(takes("v@?@", integer)) << integer;
  }
  EXPECT_TRUE(takes("v@?f", "v@?d"));
  EXPECT_FALSE(takes("v@?d", "v@?@"));
  EXPECT_FALSE(takes("v@?@", "v@?@?"));
  EXPECT_TRUE(takes("v@?", "v@?"));
  EXPECT_FALSE(takes("v@?@", "v@?"));
  EXPECT_FALSE(takes("v@?", "v@?@"));
  EXPECT_FALSE(takes("v@?C@", "v@?@C"));
}

TEST(XPCSignature, ScalarsThatDoNotFitAreRefused) {
  auto signature = Block("v@?BcCsSiIqQfd");
  const auto &types = signature->arguments();
  Slot slot;
  EXPECT_TRUE(StoreUnsigned(types[0], 1, &slot));
  EXPECT_FALSE(StoreUnsigned(types[0], 2, &slot));
  EXPECT_TRUE(StoreSigned(types[1], -128, &slot));
  EXPECT_FALSE(StoreSigned(types[1], 128, &slot));
  EXPECT_TRUE(StoreSigned(types[2], 255, &slot));
  EXPECT_FALSE(StoreSigned(types[2], -1, &slot));
  EXPECT_FALSE(StoreUnsigned(types[2], 256, &slot));
  EXPECT_FALSE(StoreSigned(types[3], 40000, &slot));
  EXPECT_TRUE(StoreUnsigned(types[4], 40000, &slot));
  EXPECT_FALSE(StoreSigned(types[5], INT64_C(1) << 31, &slot));
  EXPECT_TRUE(StoreUnsigned(types[6], UINT32_MAX, &slot));
  EXPECT_FALSE(StoreUnsigned(types[7], UINT64_MAX, &slot));
  EXPECT_TRUE(StoreUnsigned(types[8], UINT64_MAX, &slot));
  EXPECT_FALSE(StoreFloating(types[7], 1, &slot));
  EXPECT_FALSE(StoreSigned(types[9], 1, &slot));
  ASSERT_TRUE(StoreFloating(types[9], 0.5, &slot));
  EXPECT_EQ(slot.asFloat, 0.5f);
  ASSERT_TRUE(StoreFloating(types[10], 1e300, &slot));
  EXPECT_EQ(slot.asDouble, 1e300);
}
