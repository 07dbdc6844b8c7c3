#import <AppKit/NSFontWeight.h>
#include <math.h>

typedef struct {
  const CGFloat *weight;
  NSString *name;
} Face;

// Apple's lightest weight is ultra light, which type designers call thin, and the other way round.
static const Face sFaces[] = {
    {&NSFontWeightUltraLight, @"Thin"}, {&NSFontWeightThin, @"ExtraLight"},
    {&NSFontWeightLight, @"Light"},     {&NSFontWeightRegular, @"Regular"},
    {&NSFontWeightMedium, @"Medium"},   {&NSFontWeightSemibold, @"SemiBold"},
    {&NSFontWeightBold, @"Bold"},       {&NSFontWeightHeavy, @"ExtraBold"},
    {&NSFontWeightBlack, @"Black"},
};

// From this size on Apple's system font is its display face, which is drawn and spaced more
// tightly.
static const CGFloat sDisplaySize = 20;

static NSString *NearestFace(CGFloat weight) {
  const Face *nearest = &sFaces[0];
  for (size_t i = 1; i < sizeof(sFaces) / sizeof(sFaces[0]); i++) {
    if (fabs(*sFaces[i].weight - weight) < fabs(*nearest->weight - weight)) {
      nearest = &sFaces[i];
    }
  }
  return nearest->name;
}

@implementation NSFont (PlatformWeight)

+ (NSFont *)systemFontOfSize:(CGFloat)size {
  return [NSFont systemFontOfSize:size weight:NSFontWeightRegular];
}

+ (NSFont *)boldSystemFontOfSize:(CGFloat)size {
  return [NSFont systemFontOfSize:size weight:NSFontWeightBold];
}

+ (NSFont *)systemFontOfSize:(CGFloat)size weight:(NSFontWeight)weight {
  if (size <= 0) {
    size = [NSFont systemFontSize];
  }
  NSString *face = NearestFace(weight);
  // GNUstep knows a face by its PostScript name.
  NSFont *font = nil;
  if (size >= sDisplaySize) {
    font = [NSFont fontWithName:[@"InterDisplay-" stringByAppendingString:face] size:size];
  }
  if (!font) {
    font = [NSFont fontWithName:[@"Inter-" stringByAppendingString:face] size:size];
  }
  if (font) {
    return font;
  }
  return weight < NSFontWeightSemibold ? [NSFont controlContentFontOfSize:size]
                                       : [NSFont titleBarFontOfSize:size];
}

@end
