#include <gtest/gtest.h>

#include "HalvedPixels.h"

using platform::HalvedPixels;

using Bytes = std::vector<uint8_t>;

TEST(HalvedPixelsTest, AveragesTwoByTwo) {
  const Bytes pixels = {0, 0, 0, 100, 0, 0, 0, 0, 0, 100, 200, 8};
  EXPECT_EQ(HalvedPixels({pixels.data(), 2, 2, 6, 3, true}), (Bytes{50, 50, 2}));
}

TEST(HalvedPixelsTest, SkipsThePaddingBetweenRows) {
  const Bytes pixels = {10, 10, 10, 10, 10, 10, 99, 99, 30, 30, 30, 30, 30, 30, 99, 99};
  EXPECT_EQ(HalvedPixels({pixels.data(), 2, 2, 8, 3, true}), (Bytes{20, 20, 20}));
}

TEST(HalvedPixelsTest, ColorOfTransparentPixelsDoesNotShow) {
  const Bytes pixels = {200, 0, 0, 255, 0, 255, 0, 0, 200, 0, 0, 255, 0, 255, 0, 0};
  EXPECT_EQ(HalvedPixels({pixels.data(), 2, 2, 8, 4, false}), (Bytes{200, 0, 0, 128}));
  EXPECT_EQ(HalvedPixels({pixels.data(), 2, 2, 8, 4, true}), (Bytes{100, 128, 0, 128}));
}

TEST(HalvedPixelsTest, NothingVisibleStaysInvisible) {
  const Bytes pixels = {200, 1, 1, 0, 0, 255, 0, 0, 200, 0, 0, 0, 0, 255, 0, 0};
  EXPECT_EQ(HalvedPixels({pixels.data(), 2, 2, 8, 4, false}), (Bytes{0, 0, 0, 0}));
}

TEST(HalvedPixelsTest, OddSidesAreRoundedDownAndOneStaysOne) {
  const Bytes row = {9, 9, 9, 11, 11, 11, 200, 200, 200};
  EXPECT_EQ(HalvedPixels({row.data(), 3, 1, 9, 3, true}), (Bytes{10, 10, 10}));
}
