// Which views a window can be dragged by: GNUstep takes every view that is not opaque,
// and with it every button, for a part of the background.

#import <AppKit/AppKit.h>

@implementation NSControl (PlatformWindowDrag)

- (BOOL)mouseDownCanMoveWindow {
  return NO;
}

@end

@implementation NSTextField (PlatformWindowDrag)

- (BOOL)mouseDownCanMoveWindow {
  return ![self isEditable] && ![self isSelectable];
}

@end

@implementation NSImageView (PlatformWindowDrag)

- (BOOL)mouseDownCanMoveWindow {
  return ![self isEditable];
}

@end
