#import <AppKit/NSApplication.h>
#import <AppKit/NSBitmapImageRep.h>
#import <AppKit/NSGraphics.h>
#import <AppKit/NSImageNames.h>
#include <string.h>

#include <algorithm>

#include "HalvedPixels.h"
#import "Install.h"
#import "MethodReplacement.h"

NSImageName const NSImageNameApplicationIcon = @"NSApplicationIcon";

namespace {

id (*sImageNamed)(id, SEL, NSString *);

// Nobody shows an icon smaller than this.
const int kSmallestSide = 16;

/// A representation of half the size, or nil for one that cannot be read pixel by pixel.
NSBitmapImageRep *Halved(NSBitmapImageRep *rep) {
  const int channels = (int)[rep samplesPerPixel];
  if ([rep bitsPerSample] != 8 || [rep isPlanar] || (channels != 3 && channels != 4) ||
      [rep bitsPerPixel] != channels * 8 || ([rep bitmapFormat] & NSAlphaFirstBitmapFormat))
    return nil;
  const bool premultiplied = !([rep bitmapFormat] & NSAlphaNonpremultipliedBitmapFormat);
  const platform::PixelView pixels = {
      [rep bitmapData], (int)[rep pixelsWide], (int)[rep pixelsHigh], (size_t)[rep bytesPerRow],
      channels,         premultiplied};
  const int width = std::max(1, pixels.width / 2);
  const int height = std::max(1, pixels.height / 2);
  NSBitmapImageRep *half =
      [[[NSBitmapImageRep alloc] initWithBitmapDataPlanes:nullptr
                                               pixelsWide:width
                                               pixelsHigh:height
                                            bitsPerSample:8
                                          samplesPerPixel:channels
                                                 hasAlpha:[rep hasAlpha]
                                                 isPlanar:NO
                                           colorSpaceName:[rep colorSpaceName]
                                             bitmapFormat:[rep bitmapFormat]
                                              bytesPerRow:width * channels
                                             bitsPerPixel:channels * 8] autorelease];
  const std::vector<uint8_t> halved = platform::HalvedPixels(pixels);
  memcpy([half bitmapData], halved.data(), halved.size());
  return half;
}

/// The toolkit draws an image from the smallest representation that is large enough, and takes
/// single pixels out of one that is much too large. A large icon gets smaller representations to
/// draw from.
void AddSmallerRepresentations(NSImage *icon) {
  NSBitmapImageRep *smallest = nil;
  for (NSImageRep *rep in [icon representations]) {
    if (![rep isKindOfClass:[NSBitmapImageRep class]]) return;
    if (!smallest || [rep pixelsWide] < [smallest pixelsWide]) smallest = (NSBitmapImageRep *)rep;
  }
  while (smallest && std::min([smallest pixelsWide], [smallest pixelsHigh]) >= 2 * kSmallestSide) {
    smallest = Halved(smallest);
    if (smallest) [icon addRepresentation:smallest];
  }
}

/// The toolkit gives the icon its name only when the bundle's Info dictionary names a file, and
/// only once the application has been asked for it.
id ImageNamed(id self, SEL selector, NSString *name) {
  static NSImage *prepared;
  NSImage *image = sImageNamed(self, selector, name);
  if (![name isEqualToString:NSImageNameApplicationIcon]) return image;
  if (!image) {
    NSImage *icon = [[NSApplication sharedApplication] applicationIconImage];
    image = sImageNamed(self, selector, name);
    if (!image) return icon;
  }
  if (image != prepared) {
    [prepared release];
    prepared = [image retain];
    AddSmallerRepresentations(image);
  }
  return image;
}

}  // namespace

void PlatformInstallImageNames(void) {
  sImageNamed = (id(*)(id, SEL, NSString *))PlatformReplaceClassMethod(
      [NSImage class], @selector(imageNamed:), (PlatformFunction)ImageNamed);
}
