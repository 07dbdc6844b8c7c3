#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include "resources/AFXPictures.h"

namespace {

template <std::size_t length>
void expectImage(const unsigned char (&bytes)[length], NSSize points) {
  @autoreleasepool {
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
  }
}

TEST(PicturesAsImages, EnvelopesHaveASingleAndATwofoldRepresentation) {
  expectImage(AFXEnvelopeLightPicture, NSMakeSize(214, 149));
  expectImage(AFXEnvelopeDarkPicture, NSMakeSize(213, 149));
}

TEST(PicturesAsImages, CloseMarksHaveASingleAndATwofoldRepresentation) {
  expectImage(AFXCloseLightPicture, NSMakeSize(12, 12));
  expectImage(AFXCloseDarkPicture, NSMakeSize(12, 12));
}

}  // namespace
