// Images from TIFF files that read only the pixels that are used, and of which those that are not
// scaled are drawn by way of one window off the screen. The toolkit reads all pixels at once, and
// makes such a window for each image, to draw from it the next time: most are drawn once.

#import <AppKit/AppKit.h>
#import <AppKit/DPSOperators.h>

#include <cmath>

#import "Install.h"
#import "MethodReplacement.h"
#import "PlatformTiffImageRep.h"
#include "TiffPictures.h"

namespace {

using RepsMethod = NSArray *(*)(id, SEL, NSData *);
using DrawMethod = void (*)(id, SEL, NSRect, NSRect, NSCompositingOperation, CGFloat, BOOL,
                            NSDictionary *);

/// Larger pictures are left to the toolkit, in points: the window is kept.
constexpr CGFloat kMaximumSide = 512;

RepsMethod sImageReps;
DrawMethod sDraw;

NSArray *ImageReps(id self, SEL selector, NSData *data) {
  NSArray *reps = nil;
  if (self == [NSBitmapImageRep class] && platform::IsTiff([data bytes], [data length]))
    reps = [PlatformTiffImageRep platformRepsWithData:data];
  return reps ? reps : sImageReps(self, selector, data);
}

/// The picture to draw when all of it is drawn one pixel a point; nil otherwise.
NSImageRep *UnscaledRep(NSImage *image, NSRect target, NSRect source, NSDictionary *hints) {
  const NSSize size = [image size];
  const bool whole =
      NSIsEmptyRect(source) || NSEqualRects(source, NSMakeRect(0, 0, size.width, size.height));
  if (!whole || !NSEqualSizes(target.size, size) || size.width > kMaximumSide ||
      size.height > kMaximumSide)
    return nil;
  NSImageRep *rep = [image bestRepresentationForRect:target
                                             context:[NSGraphicsContext currentContext]
                                               hints:hints];
  const NSSize pixels = NSMakeSize([rep pixelsWide], [rep pixelsHigh]);
  return [rep isKindOfClass:[PlatformTiffImageRep class]] && NSEqualSizes(pixels, size) ? rep : nil;
}

/// A view off the screen of at least a size.
NSView *CanvasFor(NSSize size) {
  static NSCachedImageRep *canvas;
  const NSSize present = canvas ? [canvas size] : NSZeroSize;
  if (size.width > present.width || size.height > present.height) {
    [canvas release];
    canvas = [[NSCachedImageRep alloc]
        initWithSize:NSMakeSize(std::ceil(std::fmax(size.width, present.width)),
                                std::ceil(std::fmax(size.height, present.height)))
               depth:[[NSScreen mainScreen] depth]
            separate:YES
               alpha:YES];
  }
  return [[canvas window] contentView];
}

void Draw(id self, SEL selector, NSRect target, NSRect source, NSCompositingOperation operation,
          CGFloat fraction, BOOL respectFlipped, NSDictionary *hints) {
  NSImageRep *rep = nil;
  if ([NSThread isMainThread]) rep = UnscaledRep(self, target, source, hints);
  if (!rep) {
    sDraw(self, selector, target, source, operation, fraction, respectFlipped, hints);
    return;
  }
  const NSRect bounds = {NSZeroPoint, target.size};
  NSGraphicsContext *context = [NSGraphicsContext currentContext];
  NSView *canvas = CanvasFor(target.size);
  [canvas lockFocus];
  NSGraphicsContext *onCanvas = [NSGraphicsContext currentContext];
  DPScompositerect(onCanvas, 0, 0, NSWidth(bounds), NSHeight(bounds), NSCompositeClear);
  const NSInteger state = [onCanvas GSDefineGState];
  [rep draw];
  [canvas unlockFocus];

  [context saveGraphicsState];
  NSAffineTransform *transform = [NSAffineTransform transform];
  if (respectFlipped && [context isFlipped]) {
    [transform translateXBy:NSMinX(target) yBy:NSMaxY(target)];
    [transform scaleXBy:1 yBy:-1];
  } else {
    [transform translateXBy:NSMinX(target) yBy:NSMinY(target)];
  }
  [transform concat];
  [context GSdraw:state toPoint:NSZeroPoint fromRect:bounds operation:operation fraction:fraction];
  [context restoreGraphicsState];
  [context GSUndefineGState:state];
}

}  // namespace

void PlatformInstallTiffImages(void) {
  sImageReps = (RepsMethod)PlatformReplaceClassMethod(
      [NSBitmapImageRep class], @selector(imageRepsWithData:), (PlatformFunction)ImageReps);
  sDraw = (DrawMethod)PlatformReplaceMethod(
      [NSImage class], @selector(drawInRect:fromRect:operation:fraction:respectFlipped:hints:),
      (PlatformFunction)Draw);
}
