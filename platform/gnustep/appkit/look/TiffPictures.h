// Pictures of a TIFF file in memory: what they are, and their pixels, each asked for by itself.

#ifndef PLATFORM_APPKIT_LOOK_TIFFPICTURES_H
#define PLATFORM_APPKIT_LOOK_TIFFPICTURES_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

/// A picture of 8-bit red, green, blue and perhaps alpha, pixel by pixel.
struct TiffPicture {
  uint32_t width;  ///< In pixels.
  uint32_t height;
  int channels;                 ///< 3, or 4 with alpha.
  bool premultiplied;           ///< The colors, with the alpha.
  double horizontalResolution;  ///< Pixels per inch; 0: not told.
  double verticalResolution;
  int compression;  ///< As in the file: none (1), LZW (5) or PackBits (32773).
};

/// Whether the bytes begin as a TIFF file does.
bool IsTiff(const void *bytes, size_t length);

/// The pictures of a file in their order, without their pixels. Empty when it cannot be read, or
/// when one of them is of another kind.
std::vector<TiffPicture> ReadTiffPictures(const void *bytes, size_t length);

/// Reads the pixels of the picture with an index in the list above.
///
/// @param rows      Where to write the rows, from the top; what cannot be read stays as it is.
/// @param rowBytes  From one row to the next.
/// @return          Whether all could be read.
bool ReadTiffPixels(const void *bytes, size_t length, size_t index, uint8_t *rows, size_t rowBytes);

}  // namespace platform

#endif
