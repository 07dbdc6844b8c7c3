#import <AppKit/AppKit.h>

@implementation NSImageView (PlatformLayout)

- (NSSize)intrinsicContentSize {
  NSImage *image = [self image];
  return image == nil ? NSMakeSize(NSViewNoIntrinsicMetric, NSViewNoIntrinsicMetric) : [image size];
}

@end
