#import <AppKit/NSTextFieldCell.h>

@implementation NSTextFieldCell (PlatformBorder)

/// Border and bezel exclude each other: whichever is set, the other is off. GNUstep leaves the
/// bezel that every text field starts with when the border is turned off.
- (void)setBordered:(BOOL)flag {
  if (!flag) {
    [self setBezeled:NO];
  }
  [super setBordered:flag];
}

@end
