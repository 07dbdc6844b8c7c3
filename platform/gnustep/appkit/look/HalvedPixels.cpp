#include "HalvedPixels.h"

#include <algorithm>

namespace platform {

std::vector<uint8_t> HalvedPixels(const PixelView &pixels) {
  const int width = std::max(1, pixels.width / 2);
  const int height = std::max(1, pixels.height / 2);
  const int channels = pixels.channels;
  const bool weighted = channels == 4 && !pixels.premultiplied;
  std::vector<uint8_t> halved;
  halved.reserve(static_cast<size_t>(width) * height * channels);

  for (int y = 0; y < height; y++) {
    for (int x = 0; x < width; x++) {
      const uint8_t *four[4];
      for (int i = 0; i < 4; i++) {
        const int column = std::min(2 * x + i % 2, pixels.width - 1);
        const int row = std::min(2 * y + i / 2, pixels.height - 1);
        four[i] = pixels.data + row * pixels.bytesPerRow + column * channels;
      }
      for (int channel = 0; channel < channels; channel++) {
        // A color counts as much as it can be seen, or what transparent pixels hide would show.
        const bool byAlpha = weighted && channel < 3;
        unsigned sum = 0;
        unsigned weights = 0;
        for (const uint8_t *pixel : four) {
          const unsigned weight = byAlpha ? pixel[3] : 1;
          sum += weight * pixel[channel];
          weights += weight;
        }
        halved.push_back(static_cast<uint8_t>(weights ? (sum + weights / 2) / weights : 0));
      }
    }
  }
  return halved;
}

}  // namespace platform
