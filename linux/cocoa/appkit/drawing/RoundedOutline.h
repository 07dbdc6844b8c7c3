// The pixels of a rectangle with round corners.

#ifndef PLATFORM_ROUNDED_OUTLINE_H
#define PLATFORM_ROUNDED_OUTLINE_H

#include <vector>

namespace platform {

struct PixelRectangle {
  int x;
  int y;
  int width;
  int height;
};

/// The rectangles, top to bottom, that together cover every pixel whose centre is inside a
/// rectangle of this size with corners of this radius. All in pixels; the radius is limited to half
/// the shorter side.
std::vector<PixelRectangle> RoundedOutline(int width, int height, double radius);

}  // namespace platform

#endif
