#import "drawing/AquaButton.h"

#import <AppKit/AppKit.h>
#include <math.h>

#import "appearance/AppearanceChange.h"
#import "drawing/ControlInsets.h"
#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

static const CGFloat sRadius = 5.5;
// A push button is no taller than this however tall its frame is, and no lower, unless it is made
// so.
static const CGFloat sMaximumHeight = 24;
// Around a title of 13 points.
static const CGFloat sNaturalHeight = 21;

static NSColor *(*sTextColor)(id, SEL);
static NSSize (*sButtonSize)(id, SEL);

static NSColor *Gray(CGFloat white, CGFloat alpha) {
  return [NSColor colorWithCalibratedWhite:white alpha:alpha];
}

static NSColor *Blue(CGFloat red, CGFloat green, CGFloat blue) {
  return [NSColor colorWithCalibratedRed:red / 255 green:green / 255 blue:blue / 255 alpha:1];
}

BOOL PlatformIsPushButton(NSCell *cell) {
  return [cell isKindOfClass:[NSButtonCell class]] &&
         ![cell isKindOfClass:[NSMenuItemCell class]] && [cell isBordered] &&
         [(NSButtonCell *)cell bezelStyle] == NSRoundedBezelStyle;
}

BOOL PlatformIsDefaultButton(NSButtonCell *cell) {
  NSString *key = [cell keyEquivalent];
  return [key isEqualToString:@"\r"] || [key isEqualToString:@"\n"];
}

static NSColor *TextColor(id cell, SEL selector) {
  if (!PlatformIsPushButton(cell)) {
    return sTextColor(cell, selector);
  }
  BOOL dark = PlatformAppearanceIsDark([cell controlView]);
  if (![cell isEnabled]) {
    return Gray(dark ? 1 : 0, 0.25);
  }
  if (PlatformIsDefaultButton(cell)) {
    return Gray(1, 1);
  }
  return dark ? Gray(1, 0.88) : Gray(0, 0.87);
}

/// Whole points: text is as wide and as high as it comes, and a bezel between two pixels is not
/// sharp.
static NSSize ButtonSize(id cell, SEL selector) {
  NSSize size = sButtonSize(cell, selector);
  if (PlatformIsPushButton(cell)) {
    const NSEdgeInsets insets = PlatformInsetsOfCell(cell);
    size.height = MAX(size.height, sNaturalHeight + insets.top + insets.bottom);
  }
  return NSMakeSize(ceil(size.width), ceil(size.height));
}

static void Install(void) {
  sButtonSize = (NSSize(*)(id, SEL))PlatformReplaceMethod([NSButtonCell class], @selector(cellSize),
                                                          (PlatformFunction)ButtonSize);
  sTextColor = (NSColor * (*)(id, SEL)) PlatformReplaceMethod(
      [NSButtonCell class], @selector(textColor), (PlatformFunction)TextColor);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }

static NSBezierPath *Rounded(NSRect rect, CGFloat radius) {
  return [NSBezierPath bezierPathWithRoundedRect:rect xRadius:radius yRadius:radius];
}

/// Fills from `top` to `bottom` as they stand on the screen.
static void FillGradient(NSBezierPath *path, NSColor *top, NSColor *bottom, NSView *view) {
  NSGradient *gradient = [[[NSGradient alloc] initWithStartingColor:top
                                                        endingColor:bottom] autorelease];
  [gradient drawInBezierPath:path angle:[view isFlipped] ? 90 : -90];
}

/// Where in its frame the bezel of a push button lies, without its shadow.
static NSRect PushButtonRect(NSRect frame, NSCell *cell, BOOL flipped) {
  const NSEdgeInsets insets = PlatformInsetsOfCell(cell);
  frame.origin.x += insets.left;
  frame.origin.y += flipped ? insets.top : insets.bottom;
  frame.size.width -= insets.left + insets.right;
  frame.size.height -= insets.top + insets.bottom;
  CGFloat height = MIN(floor(NSHeight(frame)), sMaximumHeight);
  frame.origin.y += floor((NSHeight(frame) - height) / 2) + (flipped ? 0 : 1);
  frame.size.height = height - 1;
  return frame;
}

void PlatformDrawPushButton(NSRect frame, NSButtonCell *cell, NSView *view,
                            GSThemeControlState state) {
  BOOL dark = PlatformAppearanceIsDark(view);
  BOOL pressed = state == GSThemeSelectedState || state == GSThemeSelectedFirstResponderState ||
                 state == GSThemeHighlightedState || state == GSThemeHighlightedFirstResponderState;
  BOOL accent = PlatformIsDefaultButton(cell) && [cell isEnabled];

  // The lowest row of points is the shadow's.
  NSRect outer = PushButtonRect(frame, cell, [view isFlipped]);
  if (NSIsEmptyRect(outer)) {
    return;
  }
  NSRect shadow = NSOffsetRect(outer, 0, [view isFlipped] ? 1 : -1);
  [Gray(0, dark ? 0.35 : 0.08) setFill];
  [Rounded(shadow, sRadius) fill];

  NSBezierPath *path = Rounded(outer, sRadius);
  if (accent) {
    if (pressed) {
      FillGradient(path, Blue(20, 110, 236), Blue(0, 91, 214), view);
    } else {
      FillGradient(path, Blue(58, 149, 255), Blue(0, 116, 246), view);
    }
  } else if (dark) {
    CGFloat white = pressed ? 0.49 : 0.40;
    FillGradient(path, Gray(white + 0.02, 1), Gray(white - 0.01, 1), view);
  } else {
    [Gray(0.80, 1) setFill];
    [path fill];
    [Gray(pressed ? 0.92 : 1, 1) setFill];
    [Rounded(NSInsetRect(outer, 1, 1), sRadius - 1) fill];
  }

  if (dark || accent) {
    // Light from above on the upper edge.
    NSRect edge = NSInsetRect(outer, sRadius - 1, 0);
    edge.size.height = 1;
    if (![view isFlipped]) {
      edge.origin.y = NSMaxY(outer) - 1;
    }
    [Gray(1, dark && !accent ? 0.10 : 0.16) setFill];
    NSRectFillUsingOperation(edge, NSCompositeSourceOver);
  }
}

void PlatformDrawFocusRing(NSRect frame, NSView *view) {
  BOOL onAccent = NO;
  CGFloat radius = 3;
  if ([view isKindOfClass:[NSButton class]]) {
    NSButtonCell *cell = [(NSButton *)view cell];
    if (PlatformIsPushButton(cell)) {
      onAccent = PlatformIsDefaultButton(cell);
      frame = PushButtonRect([view bounds], cell, [view isFlipped]);
      radius = sRadius;
    } else {
      frame = [view bounds];
    }
  }
  // The view cannot draw beyond its bounds, so the ring lies inside the control.
  NSBezierPath *ring = Rounded(NSInsetRect(frame, 1, 1), radius - 1);
  [ring setLineWidth:2];
  if (onAccent) {
    [Gray(1, 0.55) setStroke];
  } else {
    [[NSColor colorWithCalibratedRed:0 green:103.0 / 255 blue:244.0 / 255 alpha:0.55] setStroke];
  }
  [ring stroke];
}
