#import <AppKit/AppKit.h>

#import "layout/LayoutEngine.h"

@implementation NSWindow (PlatformLayout)

- (void)updateConstraintsIfNeeded {
  platform::layout::updateConstraintsBelow([self contentView]);
}

- (void)layoutIfNeeded {
  platform::layout::layOutIfNeeded([self contentView]);
}

@end
