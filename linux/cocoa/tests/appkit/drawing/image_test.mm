#include <tiffio.h>
#include <unistd.h>

#include <vector>

#include <CocoaTesting/LookTest.h>

using look::Near;
using look::PumpUntil;
using look::WindowPixel;

using Images = look::LookTest;

/// A file of two images at 72 and 144 pixels per inch: big-endian, LZW with predictor, unassociated
/// alpha; the inner half red, the rest transparent.
static NSData *TwoImageTiff(int width, int height) {
  char path[] = "/tmp/look-image-XXXXXX";
  int descriptor = mkstemp(path);
  close(descriptor);
  TIFF *file = TIFFOpen(path, "wb");
  for (int scale = 1; scale <= 2; scale++) {
    int w = width * scale;
    int h = height * scale;
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, 4);
    uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
    TIFFSetField(file, TIFFTAG_EXTRASAMPLES, 1, &alpha);
    TIFFSetField(file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(file, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(file, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(file, TIFFTAG_ROWSPERSTRIP, h);
    TIFFSetField(file, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(file, TIFFTAG_XRESOLUTION, 72.0 * scale);
    TIFFSetField(file, TIFFTAG_YRESOLUTION, 72.0 * scale);
    for (int y = 0; y < h; y++) {
      std::vector<unsigned char> row(w * 4, 0);
      bool inner = y >= h / 4 && y < h - h / 4;
      for (int x = w / 4; inner && x < w - w / 4; x++) {
        row[x * 4] = 255;
        row[x * 4 + 3] = 255;
      }
      TIFFWriteScanline(file, row.data(), y, 0);
    }
    TIFFWriteDirectory(file);
  }
  TIFFClose(file);
  NSData *data = [NSData dataWithContentsOfFile:[NSString stringWithUTF8String:path]];
  unlink(path);
  return data;
}

TEST_F(Images, TwoImagesOfOneFileAreOneImageWithTwoRepresentations) {
  NSImage *image = [[[NSImage alloc] initWithData:TwoImageTiff(40, 20)] autorelease];
  EXPECT_EQ([image size].width, 40);
  EXPECT_EQ([image size].height, 20);
  ASSERT_EQ([[image representations] count], 2u);
  for (int i = 0; i < 2; i++) {
    NSImageRep *rep = [[image representations] objectAtIndex:i];
    EXPECT_EQ([rep pixelsWide], 40 * (i + 1));
    EXPECT_EQ([rep pixelsHigh], 20 * (i + 1));
    EXPECT_EQ([rep size].width, 40);
    EXPECT_EQ([rep size].height, 20);
  }
}

class ImagesOnScreen : public look::LookTest {
 protected:
  void SetUp() override {
    look::LookTest::SetUp();
    window_ = [LookWindow windowWithSize:NSMakeSize(200, 160) white:1];
    [window_ center];
  }
  void TearDown() override {
    [window_ close];
    look::LookTest::TearDown();
  }

  void show(NSImage *image, NSRect frame) {
    NSImageView *view = [[[NSImageView alloc] initWithFrame:frame] autorelease];
    [view setImage:image];
    [[window_ contentView] addSubview:view];
    [window_ orderFront:nil];
  }

  bool isAt(int x, int y, int red, int green, int blue) {
    return PumpUntil([=] { return Near(WindowPixel(window_, x, y), red, green, blue, 4); }, 5);
  }

  LookWindow *window_ = nil;
};

// A 40 × 20 image in a 100 × 100 view at (50, 30): it stands at x 80 … 120, y 70 … 90 from the top,
// its red half at x 90 … 110, y 75 … 85.
TEST_F(ImagesOnScreen, SmallerImageIsCentredAndNotScaled) {
  show([[[NSImage alloc] initWithData:TwoImageTiff(40, 20)] autorelease],
       NSMakeRect(50, 30, 100, 100));
  ASSERT_TRUE(isAt(100, 80, 255, 0, 0));
  EXPECT_TRUE(isAt(91, 76, 255, 0, 0));
  EXPECT_TRUE(isAt(108, 83, 255, 0, 0));
  EXPECT_TRUE(isAt(88, 80, 255, 255, 255));
  EXPECT_TRUE(isAt(111, 80, 255, 255, 255));
  EXPECT_TRUE(isAt(100, 73, 255, 255, 255));
  EXPECT_TRUE(isAt(100, 86, 255, 255, 255));
}

TEST_F(ImagesOnScreen, LargerImageIsScaledDownInProportion) {
  show([[[NSImage alloc] initWithData:TwoImageTiff(400, 200)] autorelease],
       NSMakeRect(50, 30, 100, 100));
  // 100 × 50 at x 50 … 150, y 55 … 105; red at x 75 … 125, y 67.5 … 92.5.
  ASSERT_TRUE(isAt(100, 80, 255, 0, 0));
  EXPECT_TRUE(isAt(78, 80, 255, 0, 0));
  EXPECT_TRUE(isAt(72, 80, 255, 255, 255));
  EXPECT_TRUE(isAt(100, 70, 255, 0, 0));
  EXPECT_TRUE(isAt(100, 64, 255, 255, 255));
}

TEST_F(Images, ViewScalesDownOnly) {
  NSImageView *view = [[[NSImageView alloc] initWithFrame:NSMakeRect(0, 0, 10, 10)] autorelease];
  EXPECT_EQ([view imageScaling], NSImageScaleProportionallyDown);
  EXPECT_EQ([view imageAlignment], NSImageAlignCenter);
}

TEST_F(Images, ApplicationHasAnIconByName) {
  NSImage *icon = [NSImage imageNamed:NSImageNameApplicationIcon];
  ASSERT_NE(icon, nil);
  EXPECT_GT([icon size].width, 0);
  EXPECT_EQ([NSImage imageNamed:@"NoSuchImage"], nil);
}

// Columns of one pixel, black and white: drawn from single pixels it would be stripes, or one
// color.
TEST_F(ImagesOnScreen, LargeApplicationIconIsScaledSmoothly) {
  NSBitmapImageRep *rep = [[[NSBitmapImageRep alloc] initWithBitmapDataPlanes:nullptr
                                                                   pixelsWide:512
                                                                   pixelsHigh:512
                                                                bitsPerSample:8
                                                              samplesPerPixel:4
                                                                     hasAlpha:YES
                                                                     isPlanar:NO
                                                               colorSpaceName:NSDeviceRGBColorSpace
                                                                  bytesPerRow:0
                                                                 bitsPerPixel:0] autorelease];
  unsigned char *data = [rep bitmapData];
  for (int i = 0; i < 512 * 512; i++) {
    data[i * 4] = data[i * 4 + 1] = data[i * 4 + 2] = i % 2 ? 255 : 0;
    data[i * 4 + 3] = 255;
  }
  NSImage *icon = [[[NSImage alloc] initWithSize:NSMakeSize(512, 512)] autorelease];
  [icon addRepresentation:rep];
  NSImage *before = [NSImage imageNamed:NSImageNameApplicationIcon];
  [before setName:nil];
  [icon setName:NSImageNameApplicationIcon];
  show([NSImage imageNamed:NSImageNameApplicationIcon], NSMakeRect(50, 30, 110, 110));
  [icon setName:nil];
  [before setName:NSImageNameApplicationIcon];
  ASSERT_TRUE(isAt(105, 75, 128, 128, 128));
  for (int x = 60; x < 150; x++) {
    EXPECT_TRUE(Near(WindowPixel(window_, x, 75), 128, 128, 128)) << x;
  }
}
