#import "PlatformTiffImageRep.h"

#import <AppKit/AppKit.h>

#include "TiffPictures.h"

@interface NSBitmapImageRep (ToolkitPrivate)
- (void)_premultiply;
- (void)_unpremultiply;
@end

@implementation PlatformTiffImageRep

+ (NSArray *)platformRepsWithData:(NSData *)data {
  const std::vector<platform::TiffPicture> pictures =
      platform::ReadTiffPictures([data bytes], [data length]);
  if (pictures.empty()) return nil;
  // Bytes that the data does not own may be gone when they are asked for.
  NSData *file = [NSData dataWithBytes:[data bytes] length:[data length]];
  NSMutableArray *reps = [NSMutableArray arrayWithCapacity:pictures.size()];
  for (size_t i = 0; i < pictures.size(); i++)
    [reps addObject:[[[self alloc] platformInitWithPicture:pictures[i] index:i
                                                      file:file] autorelease]];
  return reps;
}

- (id)platformInitWithPicture:(const platform::TiffPicture &)picture
                        index:(NSUInteger)index
                         file:(NSData *)file {
  self = [super initWithBitmapDataPlanes:NULL
                              pixelsWide:picture.width
                              pixelsHigh:picture.height
                           bitsPerSample:8
                         samplesPerPixel:picture.channels
                                hasAlpha:picture.channels == 4
                                isPlanar:NO
                          colorSpaceName:NSDeviceRGBColorSpace
                            bitmapFormat:picture.premultiplied ? (NSBitmapFormat)0
                                                               : NSAlphaNonpremultipliedBitmapFormat
                             bytesPerRow:0
                            bitsPerPixel:0];
  if (!self) return nil;
  if (picture.horizontalResolution > 0 && picture.verticalResolution > 0)
    [self setSize:NSMakeSize(picture.width * 72 / picture.horizontalResolution,
                             picture.height * 72 / picture.verticalResolution)];
  // The kinds of compression that are read have the same numbers there.
  [self setCompression:(NSTIFFCompression)picture.compression factor:0];
  [self setProperty:NSImageCompressionMethod
          withValue:[NSNumber numberWithUnsignedShort:picture.compression]];
  [self setProperty:NSImageCompressionFactor withValue:[NSNumber numberWithFloat:0]];
  _index = index;
  _file = [file retain];
  // Last: the toolkit looks at the pixels of a new representation.
  _isUnread = YES;
  return self;
}

- (void)dealloc {
  [_file release];
  [super dealloc];
}

/// Until the pixels are there any thread may be the one that asks for them.
- (void)platformRead {
  if (!__atomic_load_n(&_isUnread, __ATOMIC_ACQUIRE)) return;
  @synchronized(self) {
    if (!_isUnread) return;
    unsigned char *planes[5] = {};
    [super getBitmapDataPlanes:planes];
    if (!platform::ReadTiffPixels([_file bytes], [_file length], _index, planes[0],
                                  [self bytesPerRow]))
      NSLog(@"Picture %lu of a TIFF file is damaged", (unsigned long)_index);
    [_file release];
    _file = nil;
    __atomic_store_n(&_isUnread, NO, __ATOMIC_RELEASE);
  }
}

// All that reads or writes pixels comes through these.

- (void)getBitmapDataPlanes:(unsigned char **)data {
  [self platformRead];
  [super getBitmapDataPlanes:data];
}

- (void)getPixel:(NSUInteger[])pixelData atX:(NSInteger)x y:(NSInteger)y {
  [self platformRead];
  [super getPixel:pixelData atX:x y:y];
}

- (void)setPixel:(NSUInteger[])pixelData atX:(NSInteger)x y:(NSInteger)y {
  [self platformRead];
  [super setPixel:pixelData atX:x y:y];
}

- (id)copyWithZone:(NSZone *)zone {
  [self platformRead];
  return [super copyWithZone:zone];
}

- (void)_premultiply {
  [self platformRead];
  [super _premultiply];
}

- (void)_unpremultiply {
  [self platformRead];
  [super _unpremultiply];
}

@end
