// The text of a label lies inside the insets of its frame. GNUstep lets it begin at the edge.

#import <AppKit/NSTextFieldCell.h>

#import "drawing/ControlInsets.h"

@implementation NSTextFieldCell (PlatformLabel)

- (NSRect)titleRectForBounds:(NSRect)bounds {
  const NSEdgeInsets insets = PlatformInsetsOfCell(self);
  return NSInsetRect([super titleRectForBounds:bounds], insets.left, insets.top);
}

- (NSSize)cellSize {
  const NSEdgeInsets insets = PlatformInsetsOfCell(self);
  const NSSize size = [super cellSize];
  return NSMakeSize(size.width + insets.left + insets.right,
                    size.height + insets.top + insets.bottom);
}

@end
