#import <AppKit/NSAppearance.h>
#import <Foundation/NSArray.h>
#import <Foundation/NSDictionary.h>
#import <Foundation/NSString.h>

// The appearances there are, each with the names that a match falls back on, nearest first.
static NSDictionary *Fallbacks(void) {
  static NSDictionary *fallbacks;
  @synchronized([NSAppearance class]) {
    if (!fallbacks) {
      fallbacks = [@{
        NSAppearanceNameAqua : @[],
        NSAppearanceNameDarkAqua : @[],
        NSAppearanceNameLightContent : @[ NSAppearanceNameAqua ],
        NSAppearanceNameVibrantLight : @[ NSAppearanceNameAqua ],
        NSAppearanceNameVibrantDark : @[ NSAppearanceNameDarkAqua ],
        NSAppearanceNameAccessibilityHighContrastAqua : @[ NSAppearanceNameAqua ],
        NSAppearanceNameAccessibilityHighContrastDarkAqua : @[ NSAppearanceNameDarkAqua ],
        NSAppearanceNameAccessibilityHighContrastVibrantLight : @[
          NSAppearanceNameVibrantLight, NSAppearanceNameAccessibilityHighContrastAqua,
          NSAppearanceNameAqua
        ],
        NSAppearanceNameAccessibilityHighContrastVibrantDark : @[
          NSAppearanceNameVibrantDark, NSAppearanceNameAccessibilityHighContrastDarkAqua,
          NSAppearanceNameDarkAqua
        ],
      } retain];
    }
  }
  return fallbacks;
}

@implementation NSAppearance (PlatformMatching)

/// One object a name; nil for a name that is none of the system's.
+ (instancetype)appearanceNamed:(NSString *)name {
  static NSMutableDictionary *appearances;
  @synchronized([NSAppearance class]) {
    if (!appearances) {
      appearances = [[NSMutableDictionary alloc] init];
      for (NSString *known in Fallbacks()) {
        NSAppearance *appearance = [[[NSAppearance alloc] initWithAppearanceNamed:known
                                                                           bundle:nil] autorelease];
        [appearances setObject:appearance forKey:known];
      }
    }
  }
  return name ? [appearances objectForKey:name] : nil;
}

- (NSAppearanceName)bestMatchFromAppearancesWithNames:(NSArray *)names {
  NSString *own = [self name];
  if (!own) {
    return nil;
  }
  if ([names containsObject:own]) {
    return own;
  }
  for (NSString *name in [Fallbacks() objectForKey:own]) {
    if ([names containsObject:name]) {
      return name;
    }
  }
  return nil;
}

@end
