#include "TiffPictures.h"

#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

namespace platform {
namespace {

/// What the TIFF library reads from in place of a file.
struct Source {
  const uint8_t *bytes;
  toff_t length;
  toff_t position = 0;
};

tmsize_t Read(thandle_t handle, void *buffer, tmsize_t wanted) {
  Source &source = *static_cast<Source *>(handle);
  if (wanted <= 0 || source.position >= source.length) return 0;
  const toff_t count = std::min(static_cast<toff_t>(wanted), source.length - source.position);
  memcpy(buffer, source.bytes + source.position, count);
  source.position += count;
  return static_cast<tmsize_t>(count);
}

tmsize_t Write(thandle_t, void *, tmsize_t) { return 0; }

toff_t Seek(thandle_t handle, toff_t offset, int from) {
  Source &source = *static_cast<Source *>(handle);
  const toff_t base = from == SEEK_CUR ? source.position : from == SEEK_END ? source.length : 0;
  return source.position = base + offset;
}

int Close(thandle_t) { return 0; }

toff_t Size(thandle_t handle) { return static_cast<Source *>(handle)->length; }

/// The bytes are in memory: strips are decoded from where they lie.
int Map(thandle_t handle, void **base, toff_t *size) {
  const Source &source = *static_cast<Source *>(handle);
  *base = const_cast<uint8_t *>(source.bytes);
  *size = source.length;
  return 1;
}

void Unmap(thandle_t, void *, toff_t) {}

using File = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

File Open(Source &source) {
  return File(TIFFClientOpen("picture", "r", &source, Read, Write, Seek, Close, Size, Map, Unmap),
              TIFFClose);
}

/// The present directory of a file; false when it is of another kind.
bool Describe(TIFF *file, TiffPicture *picture) {
  uint16_t bits = 0, channels = 0, photometric = 0, planes = 0, compression = 0, unit = 0;
  uint16_t extras = 0;
  uint16_t *kinds = nullptr;
  float horizontal = 0, vertical = 0;
  TIFFGetFieldDefaulted(file, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetFieldDefaulted(file, TIFFTAG_SAMPLESPERPIXEL, &channels);
  TIFFGetFieldDefaulted(file, TIFFTAG_PLANARCONFIG, &planes);
  TIFFGetFieldDefaulted(file, TIFFTAG_COMPRESSION, &compression);
  TIFFGetFieldDefaulted(file, TIFFTAG_EXTRASAMPLES, &extras, &kinds);
  TIFFGetFieldDefaulted(file, TIFFTAG_RESOLUTIONUNIT, &unit);
  const bool known = TIFFGetField(file, TIFFTAG_IMAGEWIDTH, &picture->width) &&
                     TIFFGetField(file, TIFFTAG_IMAGELENGTH, &picture->height) &&
                     TIFFGetField(file, TIFFTAG_PHOTOMETRIC, &photometric);
  if (!known || picture->width == 0 || picture->height == 0 || bits != 8 ||
      photometric != PHOTOMETRIC_RGB || planes != PLANARCONFIG_CONTIG || extras > 1 ||
      channels != 3 + extras || TIFFIsTiled(file)) {
    return false;
  }
  if (compression != COMPRESSION_NONE && compression != COMPRESSION_LZW &&
      compression != COMPRESSION_PACKBITS) {
    return false;
  }
  if (TIFFGetField(file, TIFFTAG_XRESOLUTION, &horizontal) &&
      TIFFGetField(file, TIFFTAG_YRESOLUTION, &vertical) && unit != RESUNIT_NONE) {
    const double inch = unit == RESUNIT_CENTIMETER ? 2.54 : 1;
    picture->horizontalResolution = horizontal * inch;
    picture->verticalResolution = vertical * inch;
  }
  picture->channels = channels;
  picture->premultiplied = extras == 1 && kinds[0] == EXTRASAMPLE_ASSOCALPHA;
  picture->compression = compression;
  return true;
}

}  // namespace

bool IsTiff(const void *bytes, size_t length) {
  return length > 8 && (memcmp(bytes, "II*\0", 4) == 0 || memcmp(bytes, "MM\0*", 4) == 0);
}

std::vector<TiffPicture> ReadTiffPictures(const void *bytes, size_t length) {
  std::vector<TiffPicture> pictures;
  Source source = {static_cast<const uint8_t *>(bytes), length};
  const File file = Open(source);
  if (!file) return pictures;
  do {
    TiffPicture picture = {};
    if (!Describe(file.get(), &picture)) return {};
    pictures.push_back(picture);
  } while (TIFFReadDirectory(file.get()));
  return pictures;
}

bool ReadTiffPixels(const void *bytes, size_t length, size_t index, uint8_t *rows,
                    size_t rowBytes) {
  Source source = {static_cast<const uint8_t *>(bytes), length};
  const File file = Open(source);
  TiffPicture picture = {};
  if (index > std::numeric_limits<uint16_t>::max() || !file ||
      !TIFFSetDirectory(file.get(), static_cast<uint16_t>(index)) ||
      !Describe(file.get(), &picture) ||
      static_cast<size_t>(TIFFScanlineSize(file.get())) > rowBytes) {
    return false;
  }
  for (uint32_t row = 0; row < picture.height; row++) {
    if (TIFFReadScanline(file.get(), rows + row * rowBytes, row, 0) != 1) return false;
  }
  return true;
}

}  // namespace platform
