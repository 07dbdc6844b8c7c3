#import <AppKit/AppKit.h>

#import "layout/LayoutEngine.h"

@implementation NSWindow (PlatformLayout)

- (void)updateConstraintsIfNeeded {
  platform::layout::UpdateConstraintsBelow([self contentView]);
}

- (void)layoutIfNeeded {
  platform::layout::LayOutIfNeeded([self contentView]);
}

@end
