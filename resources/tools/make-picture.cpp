// Draws an SVG at one and at two pixels a point and writes both images into one TIFF file of an
// exact length:
//
//   make-picture DRAWING.svg PICTURE.tiff WIDTH HEIGHT LENGTH
//
// WIDTH and HEIGHT are points, LENGTH is bytes. The command-line tools of libtiff can do each step
// but one: they cannot leave the gap that brings a file to its length, and rsvg-convert's PNG has
// already lost the colour under transparent pixels. Hence this program.

#include <cairo.h>
#include <lcms2.h>
#include <librsvg/rsvg.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

// Each pixel of the 1x image is the mean of 8 × 8 samples, each of the 2x image of 4 × 4. Both
// images come from the same samples and so show the same picture to the last edge.
constexpr int kSamplesPerPoint = 8;

template <typename T, typename D>
std::unique_ptr<T, D> checked(T *pointer, D deleter, const char *what) {
  if (!pointer) {
    throw std::runtime_error(std::string("cannot make ") + what);
  }
  return {pointer, deleter};
}

struct Image {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgba;  // unassociated alpha

  std::uint8_t *at(int x, int y) { return &rgba[4 * (static_cast<std::size_t>(y) * width + x)]; }
};

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;

Surface render(const std::string &path, int width, int height) {
  GError *error = nullptr;
  RsvgHandle *loaded = rsvg_handle_new_from_file(path.c_str(), &error);
  if (!loaded) {
    std::string message = error->message;
    g_error_free(error);
    throw std::runtime_error(path + ": " + message);
  }
  auto handle = checked(loaded, &g_object_unref, "the drawing");
  Surface surface =
      checked(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width * kSamplesPerPoint,
                                         height * kSamplesPerPoint),
              &cairo_surface_destroy, "the surface");
  auto context = checked(cairo_create(surface.get()), &cairo_destroy, "the context");
  const RsvgRectangle viewport{0, 0, double(width) * kSamplesPerPoint,
                               double(height) * kSamplesPerPoint};
  if (!rsvg_handle_render_document(loaded, context.get(), &viewport, &error)) {
    std::string message = error->message;
    g_error_free(error);
    throw std::runtime_error(path + ": " + message);
  }
  cairo_surface_flush(surface.get());
  return surface;
}

// Where nothing is drawn, colour still matters to a reader that scales before it composites: black
// there would show as a dark seam. So the colours of the drawing grow outwards, as far as a reader
// that halves the picture or turns it a little may reach.
constexpr int kSpread = 8;

void spreadColourUnderTransparency(Image &image) {
  std::vector<std::uint8_t> known(static_cast<std::size_t>(image.width) * image.height);
  for (std::size_t i = 0; i < known.size(); ++i) {
    known[i] = image.rgba[4 * i + 3] != 0;
  }
  for (int ring = 0; ring < kSpread; ++ring) {
    std::vector<std::uint8_t> next = known;
    for (int y = 0; y < image.height; ++y) {
      for (int x = 0; x < image.width; ++x) {
        if (known[static_cast<std::size_t>(y) * image.width + x]) {
          continue;
        }
        int count = 0;
        std::array<int, 3> sum{};
        for (int v = std::max(y - 1, 0); v <= std::min(y + 1, image.height - 1); ++v) {
          for (int u = std::max(x - 1, 0); u <= std::min(x + 1, image.width - 1); ++u) {
            if (known[static_cast<std::size_t>(v) * image.width + u]) {
              const std::uint8_t *neighbour = image.at(u, v);
              for (int c = 0; c < 3; ++c) {
                sum[c] += neighbour[c];
              }
              ++count;
            }
          }
        }
        if (count > 0) {
          for (int c = 0; c < 3; ++c) {
            image.at(x, y)[c] = static_cast<std::uint8_t>((sum[c] + count / 2) / count);
          }
          next[static_cast<std::size_t>(y) * image.width + x] = 1;
        }
      }
    }
    known = std::move(next);
  }
}

Image reduce(cairo_surface_t *samples, int width, int height, int scale) {
  const int step = kSamplesPerPoint / scale;
  const unsigned char *data = cairo_image_surface_get_data(samples);
  const int stride = cairo_image_surface_get_stride(samples);
  Image image;
  image.width = width * scale;
  image.height = height * scale;
  image.rgba.resize(4 * static_cast<std::size_t>(image.width) * image.height);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      std::uint32_t alpha = 0;
      std::array<std::uint32_t, 3> colour{};  // multiplied by alpha, as cairo keeps it
      for (int v = 0; v < step; ++v) {
        const auto *row = reinterpret_cast<const std::uint32_t *>(data + (y * step + v) * stride);
        for (int u = 0; u < step; ++u) {
          const std::uint32_t argb = row[x * step + u];
          alpha += argb >> 24;
          for (int c = 0; c < 3; ++c) {
            colour[c] += (argb >> (16 - 8 * c)) & 0xFF;
          }
        }
      }
      const std::uint32_t count = static_cast<std::uint32_t>(step) * step;
      std::uint8_t *pixel = image.at(x, y);
      pixel[3] = static_cast<std::uint8_t>((alpha + count / 2) / count);
      if (pixel[3] != 0) {
        for (int c = 0; c < 3; ++c) {
          pixel[c] = static_cast<std::uint8_t>(
              std::min<std::uint32_t>(255, (colour[c] * 255 + alpha / 2) / alpha));
        }
      }
    }
  }
  spreadColourUnderTransparency(image);
  return image;
}

// sRGB as an ICC version 2 profile with a tabulated curve, which every colour engine reads; the
// library's own sRGB profile has a parametric curve, which needs version 4.
std::vector<std::uint8_t> makeProfile() {
  const cmsCIExyY white{0.3127, 0.3290, 1.0};
  const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
  // Between 256 points a straight line is as near to the curve as 16 bits can say.
  std::array<cmsUInt16Number, 256> table;
  for (std::size_t i = 0; i < table.size(); ++i) {
    const double v = double(i) / (table.size() - 1);
    const double linear = v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
    table[i] = static_cast<cmsUInt16Number>(std::lround(linear * 65535));
  }
  auto curve = checked(cmsBuildTabulatedToneCurve16(nullptr, table.size(), table.data()),
                       &cmsFreeToneCurve, "the tone curve");
  cmsToneCurve *curves[] = {curve.get(), curve.get(), curve.get()};
  auto profile = checked(cmsCreateRGBProfile(&white, &primaries, curves), &cmsCloseProfile,
                         "the colour profile");
  cmsSetProfileVersion(profile.get(), 2.1);
  auto name = checked(cmsMLUalloc(nullptr, 1), &cmsMLUfree, "the profile's name");
  cmsMLUsetASCII(name.get(), "en", "US", "sRGB");
  cmsWriteTag(profile.get(), cmsSigProfileDescriptionTag, name.get());
  cmsUInt32Number size = 0;
  if (!cmsSaveProfileToMem(profile.get(), nullptr, &size)) {
    throw std::runtime_error("cannot write the colour profile");
  }
  std::vector<std::uint8_t> bytes(size);
  if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) {
    throw std::runtime_error("cannot write the colour profile");
  }
  // The header says when and by which library the profile was made. A fixed day and no maker keep
  // the files the same from run to run: creation date at 24 (year, month, day, then the time),
  // maker of the profile at 80, preferred engine at 4, profile identifier at 84.
  const std::array<std::uint8_t, 12> day{0x07, 0xE4, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};
  std::copy(day.begin(), day.end(), bytes.begin() + 24);
  std::fill_n(bytes.begin() + 4, 4, 0);
  std::fill_n(bytes.begin() + 80, 4 + 16, 0);
  return bytes;
}

void writeImage(TIFF *tiff, Image &image, float pixelsPerInch,
                const std::vector<std::uint8_t> &profile) {
  const std::uint16_t extra = EXTRASAMPLE_UNASSALPHA;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, image.width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, image.height);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 4);
  TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, image.height);
  TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  TIFFSetField(tiff, TIFFTAG_XRESOLUTION, pixelsPerInch);
  TIFFSetField(tiff, TIFFTAG_YRESOLUTION, pixelsPerInch);
  TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(profile.size()),
               profile.data());
  if (TIFFWriteEncodedStrip(tiff, 0, image.rgba.data(), static_cast<tmsize_t>(image.rgba.size())) <
          0 ||
      !TIFFWriteDirectory(tiff)) {
    throw std::runtime_error("cannot write an image");
  }
}

// Writes both images with `gap` unused bytes between them and returns the file's length.
std::uintmax_t writeFile(const std::string &path, Image &single, Image &doubled,
                         const std::vector<std::uint8_t> &profile, std::size_t gap) {
  {
    auto tiff = checked(TIFFOpen(path.c_str(), "wb"), &TIFFClose, "the picture");
    writeImage(tiff.get(), single, 72, profile);
    // libtiff puts whatever it writes next at the end of the file, so what is appended here behind
    // its back stays where no directory points to.
    std::vector<std::uint8_t> unused(gap);
    TIFFGetSeekProc(tiff.get())(TIFFClientdata(tiff.get()), 0, SEEK_END);
    if (gap > 0 &&
        TIFFGetWriteProc(tiff.get())(TIFFClientdata(tiff.get()), unused.data(),
                                     static_cast<tmsize_t>(gap)) != static_cast<tmsize_t>(gap)) {
      throw std::runtime_error("cannot write the gap");
    }
    writeImage(tiff.get(), doubled, 144, profile);
  }
  return std::filesystem::file_size(path);
}

void makePicture(const std::string &drawing, const std::string &picture, int width, int height,
                 std::uintmax_t length) {
  Surface samples = render(drawing, width, height);
  Image single = reduce(samples.get(), width, height, 1);
  Image doubled = reduce(samples.get(), width, height, 2);
  const std::vector<std::uint8_t> profile = makeProfile();

  const std::uintmax_t tight = writeFile(picture, single, doubled, profile, 0);
  if (tight > length) {
    throw std::runtime_error(picture + " takes " + std::to_string(tight) + " bytes, " +
                             std::to_string(tight - length) + " too many: simplify the drawing");
  }
  if (writeFile(picture, single, doubled, profile, length - tight) != length) {
    throw std::runtime_error(picture + " cannot be brought to its length");
  }
  std::printf("%s: %ju bytes, %ju of them unused\n",
              std::filesystem::path(picture).filename().c_str(), length, length - tight);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: make-picture DRAWING.svg PICTURE.tiff WIDTH HEIGHT LENGTH\n");
    return 2;
  }
  try {
    makePicture(argv[1], argv[2], std::stoi(argv[3]), std::stoi(argv[4]), std::stoul(argv[5]));
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "make-picture: %s\n", failure.what());
    return 1;
  }
  return 0;
}
