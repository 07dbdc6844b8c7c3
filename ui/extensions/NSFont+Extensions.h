#ifndef NSFONT_EXTENSIONS_H
#define NSFONT_EXTENSIONS_H

#import <AppKit/AppKit.h>

NS_ASSUME_NONNULL_BEGIN

/// One scale of weights for every system; a value above the last counts as regular.
typedef NS_ENUM(NSUInteger, AFXFontWeight) {
  AFXFontWeightUltraLight = 0,
  AFXFontWeightThin = 1,
  AFXFontWeightLight = 2,
  AFXFontWeightRegular = 3,
  AFXFontWeightMedium = 4,
  AFXFontWeightSemibold = 5,
  AFXFontWeightBold = 6,
  AFXFontWeightHeavy = 7,
  AFXFontWeightBlack = 8,
};

/// Fonts by weight, on systems without weight-aware system fonts too. Sizes are in points. Any
/// thread on which the toolkit's fonts may be used; every font is autoreleased.
@interface NSFont (Extensions)

/// Whether the running toolkit has weight-aware system fonts: one later than 10.10's last.
+ (BOOL)afx_appKitKnowsNSFontWeight;

/// The face that stands for `weight` on a toolkit without weight-aware system fonts.
+ (NSString *)afx_legacySystemFontNameForWeight:(AFXFontWeight)weight;

/// The toolkit's own weight. Only where `afx_appKitKnowsNSFontWeight`: older systems lack the
/// constants.
+ (CGFloat)afx_appKitFontWeightForWeight:(AFXFontWeight)weight;

/// The system font, or the legacy face on an old toolkit: nil if the system lacks that face.
+ (nullable NSFont *)afx_systemFontOfSize:(CGFloat)size weight:(AFXFontWeight)weight;

/// The system font; on an old toolkit without regard to the weight.
+ (NSFont *)afx_systemFontOfSize:(CGFloat)size weightIfAvailable:(AFXFontWeight)weight;

/// The monospaced face for `weight` if it is installed, else the system font.
+ (nullable NSFont *)afx_robotoMonoFontOfSize:(CGFloat)size weight:(AFXFontWeight)weight;

@end

NS_ASSUME_NONNULL_END

#endif
