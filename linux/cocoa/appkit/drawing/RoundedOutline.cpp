#include "drawing/RoundedOutline.h"

#include <algorithm>
#include <cmath>

namespace platform {

std::vector<PixelRectangle> RoundedOutline(int width, int height, double radius) {
  std::vector<PixelRectangle> rectangles;
  if (width <= 0 || height <= 0) {
    return rectangles;
  }
  radius = std::clamp(radius, 0.0, std::min(width, height) / 2.0);

  const int rows = std::min(static_cast<int>(std::ceil(radius)), height / 2);
  std::vector<int> insets(rows);
  for (int row = 0; row < rows; row++) {
    const double fromCentre = std::max(0.0, radius - (row + 0.5));
    const double halfChord = std::sqrt(radius * radius - fromCentre * fromCentre);
    // The first column whose centre is not left of the arc.
    insets[row] = std::max(0, static_cast<int>(std::ceil(radius - halfChord - 0.5)));
  }

  for (int row = 0; row < rows; row++) {
    rectangles.push_back({insets[row], row, width - 2 * insets[row], 1});
  }
  if (height > 2 * rows) {
    rectangles.push_back({0, rows, width, height - 2 * rows});
  }
  for (int row = rows - 1; row >= 0; row--) {
    rectangles.push_back({insets[row], height - 1 - row, width - 2 * insets[row], 1});
  }
  return rectangles;
}

}  // namespace platform
