#import "drawing/ControlInsets.h"

#import <AppKit/NSTextFieldCell.h>

#import "drawing/AquaButton.h"

// Apple documents no figures. These are observed: Interface Builder, on OS X 10.10 to macOS 10.12,
// writes frames of 32 points for push buttons 21 points high, which stand 6 points further to the
// left and 7 further down than their constraints say, and frames of labels that are 2 points wider
// than the text on either side.
static const NSEdgeInsets sPushButtonInsets = {.top = 4, .left = 6, .bottom = 7, .right = 6};
static const NSEdgeInsets sLabelInsets = {.top = 0, .left = 2, .bottom = 0, .right = 2};
static const NSEdgeInsets sNoInsets;

static BOOL IsLabel(NSCell *cell) {
  return [cell isKindOfClass:[NSTextFieldCell class]] && ![cell isEditable] && ![cell isBordered] &&
         ![cell isBezeled];
}

NSEdgeInsets PlatformInsetsOfCell(NSCell *cell) {
  if (PlatformIsPushButton(cell)) {
    return sPushButtonInsets;
  }
  return IsLabel(cell) ? sLabelInsets : sNoInsets;
}
