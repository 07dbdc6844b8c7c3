#include <gtest/gtest.h>

#include <string>

#include "drawing/RoundedOutline.h"

using platform::PixelRectangle;
using platform::RoundedOutline;

static std::string Drawn(int width, int height, double radius) {
  std::string rows;
  for (int y = 0; y < height; y++) {
    for (int x = 0; x < width; x++) {
      int covered = 0;
      for (const PixelRectangle &part : RoundedOutline(width, height, radius)) {
        if (x >= part.x && x < part.x + part.width && y >= part.y && y < part.y + part.height) {
          covered++;
        }
      }
      rows += covered == 0 ? '.' : covered == 1 ? '#' : '!';
    }
    rows += '\n';
  }
  return rows;
}

TEST(RoundedOutlineTest, SquareCornersAreOneRectangle) {
  auto parts = RoundedOutline(7, 5, 0);
  ASSERT_EQ(parts.size(), 1u);
  EXPECT_EQ(parts[0].width, 7);
  EXPECT_EQ(parts[0].height, 5);
}

// Radius 5: row 0 is 4.5 above the centre, where the arc is sqrt(25 - 20.25) = 2.18 from the axis,
// so it begins at 2.82 and the first pixel whose centre lies beyond is 3. Rows 1 to 4
// likewise: 3.57 from the axis gives 1, 4.33 gives 1, 4.77 gives 0, 4.97 gives 0.
TEST(RoundedOutlineTest, CornersFollowTheArc) {
  EXPECT_EQ(Drawn(12, 12, 5),
            "...######...\n"
            ".##########.\n"
            ".##########.\n"
            "############\n"
            "############\n"
            "############\n"
            "############\n"
            "############\n"
            "############\n"
            ".##########.\n"
            ".##########.\n"
            "...######...\n");
}

TEST(RoundedOutlineTest, RadiusIsLimitedToHalfTheShorterSide) {
  EXPECT_EQ(Drawn(9, 4, 50), Drawn(9, 4, 2));
  EXPECT_EQ(Drawn(9, 3, 50), Drawn(9, 3, 1.5));
}

TEST(RoundedOutlineTest, NothingHasNoOutline) {
  EXPECT_TRUE(RoundedOutline(0, 5, 1).empty());
  EXPECT_TRUE(RoundedOutline(5, -1, 1).empty());
}
