// Images from TIFF files that read only the pixels that are used. The toolkit reads all of them at
// once.

#import <AppKit/AppKit.h>

#import "Install.h"
#import "MethodReplacement.h"
#import "PlatformTiffImageRep.h"
#include "TiffPictures.h"

static NSArray *(*sImageReps)(id, SEL, NSData *);

static NSArray *ImageReps(id self, SEL selector, NSData *data) {
  NSArray *reps = nil;
  if (self == [NSBitmapImageRep class] && platform::IsTiff([data bytes], [data length]))
    reps = [PlatformTiffImageRep platformRepsWithData:data];
  return reps ? reps : sImageReps(self, selector, data);
}

void PlatformInstallTiffImages(void) {
  sImageReps = (NSArray * (*)(id, SEL, NSData *)) PlatformReplaceClassMethod(
      [NSBitmapImageRep class], @selector(imageRepsWithData:), (PlatformFunction)ImageReps);
}
