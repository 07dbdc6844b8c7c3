#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "resources/AFXPictures.h"

namespace {

/// How far the means of 2 × 2 pixels of `fine` are from the pixels of `coarse` on average, in parts
/// of 255, where all of them are opaque.
double Distance(NSBitmapImageRep *coarse, NSBitmapImageRep *fine) {
  double sum = 0;
  int count = 0;
  for (NSInteger y = 0; y < coarse.pixelsHigh; ++y) {
    for (NSInteger x = 0; x < coarse.pixelsWide; ++x) {
      NSUInteger own[5] = {};
      [coarse getPixel:own atX:x y:y];
      NSUInteger means[4] = {};
      bool isOpaque = own[3] == 255;
      for (NSInteger part = 0; part < 4; ++part) {
        NSUInteger each[5] = {};
        [fine getPixel:each atX:2 * x + part % 2 y:2 * y + part / 2];
        isOpaque = isOpaque && each[3] == 255;
        for (int c = 0; c < 3; ++c) {
          means[c] += each[c];
        }
      }
      for (int c = 0; isOpaque && c < 3; ++c) {
        sum += std::abs(static_cast<double>(own[c]) - static_cast<double>(means[c]) / 4);
        ++count;
      }
    }
  }
  EXPECT_GT(count, 0);
  return sum / count;
}

template <std::size_t length>
void ExpectImage(const unsigned char (&bytes)[length], NSSize points) {
  @autoreleasepool {
    testing::internal::CaptureStderr();
    NSData *data = [NSData dataWithBytes:bytes length:length];
    NSImage *image = [[[NSImage alloc] initWithData:data] autorelease];
    ASSERT_NE(image, nil);
    EXPECT_EQ(image.size.width, points.width);
    EXPECT_EQ(image.size.height, points.height);
    NSArray<NSImageRep *> *representations = image.representations;
    ASSERT_EQ(representations.count, 2u);
    NSInteger scale = 1;
    for (NSImageRep *representation in representations) {
      EXPECT_EQ(representation.pixelsWide, scale * NSInteger(points.width));
      EXPECT_EQ(representation.pixelsHigh, scale * NSInteger(points.height));
      EXPECT_EQ(representation.size.width, points.width);
      EXPECT_EQ(representation.size.height, points.height);
      EXPECT_TRUE(representation.hasAlpha);
      ASSERT_TRUE([representation isKindOfClass:NSBitmapImageRep.class]);
      NSBitmapImageRep *bitmap = static_cast<NSBitmapImageRep *>(representation);
      EXPECT_EQ([bitmap colorAtX:0 y:0].alphaComponent, 0.0);
      EXPECT_EQ([bitmap colorAtX:bitmap.pixelsWide / 2 y:bitmap.pixelsHigh / 2].alphaComponent,
                1.0);
      ++scale;
    }
    EXPECT_LT(Distance(static_cast<NSBitmapImageRep *>([representations objectAtIndex:0]),
                       static_cast<NSBitmapImageRep *>([representations objectAtIndex:1])),
              0.5);
    // A decoder that warns names the format.
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.find("TIFF"), std::string::npos) << log;
  }
}

TEST(PicturesAsImages, EnvelopesHaveRepresentationsForOneAndTwoPixelsAPoint) {
  ExpectImage(AFXEnvelopeLightPicture, NSMakeSize(214, 149));
  ExpectImage(AFXEnvelopeDarkPicture, NSMakeSize(213, 149));
}

TEST(PicturesAsImages, CloseMarksHaveRepresentationsForOneAndTwoPixelsAPoint) {
  ExpectImage(AFXCloseLightPicture, NSMakeSize(12, 12));
  ExpectImage(AFXCloseDarkPicture, NSMakeSize(12, 12));
}

}  // namespace
