#include <gtest/gtest.h>
#include <lcms2.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "resources/AFXPictures.h"

// PELLMAR_ROOT, the folder of the sources, comes from the build.

namespace {

namespace fs = std::filesystem;

struct Picture {
  const char *file;
  const unsigned char *bytes;
  std::size_t length;
  std::size_t expectedLength;
  int width;  // points
  int height;
  std::uint32_t background;  // of the look it is drawn for, 0xRRGGBB

  fs::path path() const { return fs::path(PELLMAR_ROOT) / "resources" / file; }
  bool isCloseMark() const { return width == 12; }
};

void PrintTo(const Picture &picture, std::ostream *out) { *out << picture.file; }

struct Image {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgba;

  const std::uint8_t *at(int x, int y) const {
    return &rgba[4 * (static_cast<std::size_t>(y) * width + x)];
  }
};

using Tiff = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

int complaints = 0;
void CountComplaint(const char *module, const char *format, va_list arguments) {
  ++complaints;
  std::fprintf(stderr, "%s: ", module);
  std::vfprintf(stderr, format, arguments);
  std::fputc('\n', stderr);
}

Tiff OpenTiff(const fs::path &path) {
  TIFFSetWarningHandler(CountComplaint);
  TIFFSetErrorHandler(CountComplaint);
  return {TIFFOpen(path.c_str(), "r"), &TIFFClose};
}

Image ReadImage(TIFF *tiff) {
  Image image;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
  image.width = static_cast<int>(width);
  image.height = static_cast<int>(height);
  image.rgba.resize(std::size_t{4} * width * height);
  EXPECT_EQ(TIFFScanlineSize(tiff), static_cast<tmsize_t>(4 * width));
  for (std::uint32_t row = 0; row < height; ++row) {
    EXPECT_EQ(TIFFReadScanline(tiff, &image.rgba[std::size_t{4} * width * row], row), 1);
  }
  return image;
}

std::vector<Image> ReadImages(const fs::path &path) {
  std::vector<Image> images;
  Tiff tiff = OpenTiff(path);
  if (!tiff) {
    ADD_FAILURE() << "cannot open " << path;
    return images;
  }
  do {
    images.push_back(ReadImage(tiff.get()));
  } while (TIFFReadDirectory(tiff.get()));
  return images;
}

std::vector<char> ReadFile(const fs::path &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

template <typename T>
T Field(TIFF *tiff, std::uint32_t tag) {
  T value{};
  EXPECT_EQ(TIFFGetField(tiff, tag, &value), 1) << "tag " << tag;
  return value;
}

struct Difference {
  double mean = 0;
  double greatest = 0;
};

// How far two images differ to the eye: colours weighted by their alpha, in parts of 255. Each
// pixel of `coarse` is held against the mean of `scale` × `scale` pixels of `fine`.
Difference CompareImages(const Image &coarse, const Image &fine, int scale) {
  Difference result;
  for (int y = 0; y < coarse.height; ++y) {
    for (int x = 0; x < coarse.width; ++x) {
      for (int c = 0; c < 4; ++c) {
        auto weighted = [c](const std::uint8_t *pixel) {
          return c == 3 ? double(pixel[3]) : pixel[c] * pixel[3] / 255.0;
        };
        double sum = 0;
        for (int v = 0; v < scale; ++v) {
          for (int u = 0; u < scale; ++u) {
            sum += weighted(fine.at(x * scale + u, y * scale + v));
          }
        }
        const double d = std::abs(weighted(coarse.at(x, y)) - sum / (scale * scale));
        result.mean += d;
        result.greatest = std::max(result.greatest, d);
      }
    }
  }
  result.mean /= 4.0 * coarse.width * coarse.height;
  return result;
}

class Pictures : public testing::TestWithParam<Picture> {};

TEST_P(Pictures, AreEmbeddedByteForByte) {
  const Picture &picture = GetParam();
  EXPECT_EQ(picture.length, picture.expectedLength);
  const std::vector<char> file = ReadFile(picture.path());
  ASSERT_EQ(file.size(), picture.length);
  EXPECT_TRUE(std::equal(file.begin(), file.end(), reinterpret_cast<const char *>(picture.bytes)));
}

TEST_P(Pictures, AreBigEndianTiff) {
  const std::array<unsigned char, 4> header{'M', 'M', 0, 42};
  EXPECT_TRUE(std::equal(header.begin(), header.end(), GetParam().bytes));
}

TEST_P(Pictures, HoldImagesForOneAndTwoPixelsAPoint) {
  const Picture &picture = GetParam();
  Tiff tiff = OpenTiff(picture.path());
  ASSERT_TRUE(tiff);
  ASSERT_EQ(TIFFNumberOfDirectories(tiff.get()), 2);
  for (int scale : {1, 2}) {
    SCOPED_TRACE(scale);
    TIFF *image = tiff.get();
    ASSERT_TRUE(TIFFSetDirectory(image, static_cast<tdir_t>(scale - 1)));
    EXPECT_EQ(Field<std::uint32_t>(image, TIFFTAG_IMAGEWIDTH),
              std::uint32_t(picture.width * scale));
    EXPECT_EQ(Field<std::uint32_t>(image, TIFFTAG_IMAGELENGTH),
              std::uint32_t(picture.height * scale));
    EXPECT_EQ(Field<float>(image, TIFFTAG_XRESOLUTION), 72.0f * scale);
    EXPECT_EQ(Field<float>(image, TIFFTAG_YRESOLUTION), 72.0f * scale);
    EXPECT_EQ(Field<std::uint16_t>(image, TIFFTAG_RESOLUTIONUNIT), RESUNIT_INCH);
    EXPECT_EQ(Field<std::uint16_t>(image, TIFFTAG_COMPRESSION), COMPRESSION_LZW);
    EXPECT_EQ(Field<std::uint16_t>(image, TIFFTAG_PREDICTOR), PREDICTOR_HORIZONTAL);
    EXPECT_EQ(Field<std::uint16_t>(image, TIFFTAG_PHOTOMETRIC), PHOTOMETRIC_RGB);
    EXPECT_EQ(Field<std::uint16_t>(image, TIFFTAG_BITSPERSAMPLE), 8);
    EXPECT_EQ(Field<std::uint16_t>(image, TIFFTAG_SAMPLESPERPIXEL), 4);
    EXPECT_EQ(Field<std::uint16_t>(image, TIFFTAG_PLANARCONFIG), PLANARCONFIG_CONTIG);
    EXPECT_EQ(Field<std::uint16_t>(image, TIFFTAG_ORIENTATION), ORIENTATION_TOPLEFT);
    std::uint16_t count = 0;
    const std::uint16_t *extra = nullptr;
    ASSERT_EQ(TIFFGetField(image, TIFFTAG_EXTRASAMPLES, &count, &extra), 1);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(extra[0], EXTRASAMPLE_UNASSALPHA);
  }
}

TEST_P(Pictures, DecodeWithoutAWarning) {
  complaints = 0;
  EXPECT_EQ(ReadImages(GetParam().path()).size(), 2u);
  EXPECT_EQ(complaints, 0);
}

/// What a command prints, standard error included, and how it ended.
struct Printed {
  std::string text;
  int status;
};

Printed PrintedBy(const std::string &command) {
  Printed result{"", -1};
  FILE *pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe != nullptr) {
    std::array<char, 256> part;
    while (std::fgets(part.data(), part.size(), pipe) != nullptr) {
      result.text += part.data();
    }
    result.status = pclose(pipe);
  }
  return result;
}

TEST_P(Pictures, DecodeWithoutAWarningInImageMagickToo) {
  if (PrintedBy("identify -version").status != 0) {
    GTEST_SKIP() << "ImageMagick is not installed";
  }
  const Picture &picture = GetParam();
  std::string expected;
  for (int scale : {1, 2}) {
    const std::string resolution = std::to_string(72 * scale);
    expected += std::to_string(picture.width * scale) + "x" +
                std::to_string(picture.height * scale) + " LZW 8 " + resolution + " " + resolution +
                " PixelsPerInch sRGB\n";
  }
  const Printed printed =
      PrintedBy("identify -regard-warnings -format '%wx%h %C %z %x %y %U %[icc:description]\\n' '" +
                picture.path().string() + "'");
  EXPECT_EQ(printed.status, 0);
  EXPECT_EQ(printed.text, expected);
}

TEST_P(Pictures, CarryAnSrgbProfileInEachImage) {
  Tiff tiff = OpenTiff(GetParam().path());
  ASSERT_TRUE(tiff);
  std::unique_ptr<void, decltype(&cmsCloseProfile)> srgb(cmsCreate_sRGBProfile(), &cmsCloseProfile);
  for (int directory : {0, 1}) {
    ASSERT_TRUE(TIFFSetDirectory(tiff.get(), static_cast<tdir_t>(directory)));
    std::uint32_t size = 0;
    const void *bytes = nullptr;
    ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_ICCPROFILE, &size, &bytes), 1);
    std::unique_ptr<void, decltype(&cmsCloseProfile)> profile(cmsOpenProfileFromMem(bytes, size),
                                                              &cmsCloseProfile);
    ASSERT_TRUE(profile);
    EXPECT_EQ(cmsGetColorSpace(profile.get()), cmsSigRgbData);
    std::unique_ptr<void, decltype(&cmsDeleteTransform)> transform(
        cmsCreateTransform(profile.get(), TYPE_RGB_8, srgb.get(), TYPE_RGB_8,
                           INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE),
        &cmsDeleteTransform);
    ASSERT_TRUE(transform);
    for (int value = 0; value < 256; value += 5) {
      const std::array<std::uint8_t, 3> in{std::uint8_t(value), std::uint8_t(255 - value), 96};
      std::array<std::uint8_t, 3> out{};
      cmsDoTransform(transform.get(), in.data(), out.data(), 1);
      for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(in[c], out[c], 1);
      }
    }
  }
}

TEST_P(Pictures, ShowTheSameInBothImages) {
  const std::vector<Image> images = ReadImages(GetParam().path());
  ASSERT_EQ(images.size(), 2u);
  const Difference found = CompareImages(images[0], images[1], 2);
  EXPECT_LT(found.mean, 0.5);
  EXPECT_LE(found.greatest, 2.0);
}

TEST_P(Pictures, StayWithinTheirBounds) {
  const Picture &picture = GetParam();
  for (const Image &image : ReadImages(picture.path())) {
    for (int x : {0, image.width - 1}) {
      for (int y : {0, image.height - 1}) {
        EXPECT_EQ(image.at(x, y)[3], 0) << x << ", " << y;
      }
    }
    if (picture.isCloseMark()) {
      continue;  // the disc touches the middle of each edge
    }
    // An envelope whose shadow were cut off would show it as a line.
    for (int x = 0; x < image.width; ++x) {
      EXPECT_LE(image.at(x, 0)[3], 2);
      EXPECT_LE(image.at(x, image.height - 1)[3], 2);
    }
    for (int y = 0; y < image.height; ++y) {
      EXPECT_LE(image.at(0, y)[3], 2);
      EXPECT_LE(image.at(image.width - 1, y)[3], 2);
    }
  }
}

TEST_P(Pictures, HaveNoFringe) {
  for (const Image &image : ReadImages(GetParam().path())) {
    int faint = 0;
    for (int y = 0; y < image.height; ++y) {
      for (int x = 0; x < image.width; ++x) {
        const std::uint8_t *pixel = image.at(x, y);
        if (pixel[3] >= 32) {
          continue;
        }
        // What can hardly be seen must have a colour that its better visible neighbours have too;
        // the outskirts of a shadow are black beside any edge.
        const bool shadow = pixel[3] > 0 && pixel[0] + pixel[1] + pixel[2] == 0;
        std::array<int, 3> lowest{255, 255, 255};
        std::array<int, 3> highest{0, 0, 0};
        bool neighbours = false;
        for (int v = std::max(y - 1, 0); v <= std::min(y + 1, image.height - 1); ++v) {
          for (int u = std::max(x - 1, 0); u <= std::min(x + 1, image.width - 1); ++u) {
            const std::uint8_t *other = image.at(u, v);
            if (other[3] > pixel[3]) {
              neighbours = true;
              for (int c = 0; c < 3; ++c) {
                lowest[c] = std::min<int>(lowest[c], other[c]);
                highest[c] = std::max<int>(highest[c], other[c]);
              }
            }
          }
        }
        if (shadow || !neighbours) {
          continue;
        }
        ++faint;
        for (int c = 0; c < 3; ++c) {
          EXPECT_GE(pixel[c], lowest[c] - 24) << x << ", " << y;
          EXPECT_LE(pixel[c], highest[c] + 24) << x << ", " << y;
        }
      }
    }
    EXPECT_GT(faint, 0);
  }
}

double Luminance(double red, double green, double blue) {
  auto linear = [](double v) {
    v /= 255;
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(red) + 0.7152 * linear(green) + 0.0722 * linear(blue);
}

TEST_P(Pictures, StandOutFromTheirBackground) {
  const Picture &picture = GetParam();
  const double ground = Luminance(picture.background >> 16, picture.background >> 8 & 0xFF,
                                  picture.background & 0xFF);
  const std::vector<Image> images = ReadImages(picture.path());
  ASSERT_EQ(images.size(), 2u);
  // The close mark's disc left of its cross; the middle of the envelope's right half, which no icon
  // ever covers. 3 is what accessibility guidelines ask of a control, the picture is ornament.
  const std::uint8_t *pixel = picture.isCloseMark() ? images[0].at(2, 6) : images[0].at(180, 110);
  ASSERT_EQ(pixel[3], 255);
  const double own = Luminance(pixel[0], pixel[1], pixel[2]);
  const double contrast = (std::max(own, ground) + 0.05) / (std::min(own, ground) + 0.05);
  EXPECT_GE(contrast, picture.isCloseMark() ? 3.0 : 2.0);
}

constexpr std::array<Picture, 4> kPictures{
    Picture{"envelope-light.tiff", AFXEnvelopeLightPicture, sizeof AFXEnvelopeLightPicture, 82334,
            214, 149, 0xF9F9F9},
    Picture{"envelope-dark.tiff", AFXEnvelopeDarkPicture, sizeof AFXEnvelopeDarkPicture, 52918, 213,
            149, 0x333333},
    Picture{"close-light.tiff", AFXCloseLightPicture, sizeof AFXCloseLightPicture, 7844, 12, 12,
            0xF9F9F9},
    Picture{"close-dark.tiff", AFXCloseDarkPicture, sizeof AFXCloseDarkPicture, 7758, 12, 12,
            0x333333},
};

INSTANTIATE_TEST_SUITE_P(All, Pictures, testing::ValuesIn(kPictures), [](const auto &info) {
  std::string name = fs::path(info.param.file).stem();
  name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
  return name;
});

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (fs::temp_directory_path() / "pictures-XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  ~TemporaryFolder() { fs::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder &) = delete;
  TemporaryFolder &operator=(const TemporaryFolder &) = delete;
  const fs::path &path() const { return path_; }

 private:
  fs::path path_;
};

TEST(MakePictures, GivesTheSameBytesAgainAndTheKeptPictures) {
  if (std::system("pkg-config --exists librsvg-2.0 cairo libtiff-4 lcms2") != 0) {
    GTEST_SKIP() << "the development files of librsvg, libtiff or lcms2 are not installed";
  }
  TemporaryFolder first;
  TemporaryFolder second;
  for (const TemporaryFolder *folder : {&first, &second}) {
    const std::string command = "CXX='" PELLMAR_CXX "' '" PELLMAR_ROOT "/scripts/make-pictures' '" +
                                folder->path().string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  for (const Picture &picture : kPictures) {
    SCOPED_TRACE(picture.file);
    const std::vector<char> bytes = ReadFile(first.path() / picture.file);
    EXPECT_EQ(bytes.size(), picture.expectedLength);
    EXPECT_EQ(bytes, ReadFile(second.path() / picture.file));
    // Another version of librsvg may round another way, but it draws the same picture.
    const std::vector<Image> made = ReadImages(first.path() / picture.file);
    const std::vector<Image> kept = ReadImages(picture.path());
    ASSERT_EQ(made.size(), kept.size());
    for (std::size_t i = 0; i < made.size(); ++i) {
      ASSERT_EQ(made[i].width, kept[i].width);
      ASSERT_EQ(made[i].height, kept[i].height);
      EXPECT_LT(CompareImages(made[i], kept[i], 1).mean, 0.25);
    }
  }
}

}  // namespace
