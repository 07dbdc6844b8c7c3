// Characters that the font of a text lacks are drawn in another font. GNUstep looks for one that has
// them, and then asks the font manager for a face of the text's own family by the found one's name.

#import <AppKit/AppKit.h>

@implementation NSFont (PlatformFallback)

/// Arabic and Hebrew; Chinese, Japanese and Korean.
+ (NSArray *)preferredFontNames {
  return @[ @"DejaVuSans", @"WenQuanYiMicroHei" ];
}

@end

@implementation NSMutableAttributedString (PlatformFallback)

- (NSFont *)_substituteFontWithName:(NSString *)name font:(NSFont *)font {
  return [NSFont fontWithName:name size:[font pointSize]];
}

@end
