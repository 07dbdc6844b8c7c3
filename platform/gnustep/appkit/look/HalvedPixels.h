// A picture at half its size.

#ifndef PLATFORM_APPKIT_LOOK_HALVEDPIXELS_H
#define PLATFORM_APPKIT_LOOK_HALVEDPIXELS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

/// Pixels of 8 bits a channel, row after row; three channels are a color, a fourth is alpha.
struct PixelView {
  const uint8_t *data;
  int width;
  int height;
  size_t bytesPerRow;
  int channels;
  /// Whether the color is multiplied by alpha already.
  bool premultiplied;
};

/// Every pixel the average of two by two of the original's, in the same format and without padding
/// between rows. Half of an odd side is rounded down; a side of 1 stays.
std::vector<uint8_t> HalvedPixels(const PixelView &pixels);

}  // namespace platform

#endif
