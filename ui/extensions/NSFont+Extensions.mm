#import "ui/extensions/NSFont+Extensions.h"

#include <cmath>

/// The toolkit of the last 10.10 release.
static const double sLastAppKitWithoutWeights = 1349.0;

// The constants are younger than the oldest system, where their addresses are null: only read
// behind afx_appKitKnowsNSFontWeight, which the compiler does not know as a guard.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wunguarded-availability"

static const NSFontWeight *const sAppKitWeights[] = {
    &NSFontWeightUltraLight, &NSFontWeightThin,   &NSFontWeightLight,
    &NSFontWeightRegular,    &NSFontWeightMedium, &NSFontWeightSemibold,
    &NSFontWeightBold,       &NSFontWeightHeavy,  &NSFontWeightBlack,
};

/// Semibold shares the medium face, and the two heaviest are condensed ones: the family has no
/// others.
static NSString *const sLegacyFaces[] = {
    @"HelveticaNeue-UltraLight",     @"HelveticaNeue-Thin",
    @"HelveticaNeue-Light",          @"HelveticaNeue",
    @"HelveticaNeue-Medium",         @"HelveticaNeue-Medium",
    @"HelveticaNeue-Bold",           @"HelveticaNeue-CondensedBold",
    @"HelveticaNeue-CondensedBlack",
};

/// The monospaced family has three faces only.
static NSString *__AFXMonospacedFace(AFXFontWeight weight) {
  switch (weight) {
    case AFXFontWeightRegular:
      return @"RobotoMono-Regular";
    case AFXFontWeightBold:
      return @"RobotoMono-Bold";
    default:
      return @"RobotoMono-Medium";
  }
}

@implementation NSFont (Extensions)

+ (BOOL)afx_appKitKnowsNSFontWeight {
  return std::floor(NSAppKitVersionNumber) > sLastAppKitWithoutWeights;
}

+ (NSString *)afx_legacySystemFontNameForWeight:(AFXFontWeight)weight {
  return sLegacyFaces[weight > AFXFontWeightBlack ? AFXFontWeightRegular : weight];
}

+ (CGFloat)afx_appKitFontWeightForWeight:(AFXFontWeight)weight {
  return *sAppKitWeights[weight > AFXFontWeightBlack ? AFXFontWeightRegular : weight];
}

+ (NSFont *)afx_systemFontOfSize:(CGFloat)size weight:(AFXFontWeight)weight {
  if ([self afx_appKitKnowsNSFontWeight]) {
    return [NSFont systemFontOfSize:size weight:[self afx_appKitFontWeightForWeight:weight]];
  }
  return [NSFont fontWithName:[self afx_legacySystemFontNameForWeight:weight] size:size];
}

+ (NSFont *)afx_systemFontOfSize:(CGFloat)size weightIfAvailable:(AFXFontWeight)weight {
  if ([self afx_appKitKnowsNSFontWeight]) {
    return [NSFont systemFontOfSize:size weight:[self afx_appKitFontWeightForWeight:weight]];
  }
  return [NSFont systemFontOfSize:size];
}

+ (NSFont *)afx_robotoMonoFontOfSize:(CGFloat)size weight:(AFXFontWeight)weight {
  NSString *face = __AFXMonospacedFace(weight);
  if ([NSFontManager.sharedFontManager.availableFonts containsObject:face]) {
    return [NSFont fontWithName:face size:size];
  }
  return [NSFont afx_systemFontOfSize:size weightIfAvailable:weight];
}

@end

#pragma clang diagnostic pop
