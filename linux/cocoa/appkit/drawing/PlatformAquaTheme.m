// A GNUstep theme that draws controls as a Mac does.

#import <AppKit/AppKit.h>
#import <GNUstepGUI/GSTheme.h>

#import "drawing/AquaButton.h"
#import "drawing/ControlInsets.h"
#import "drawing/FocusVisibility.h"
#import "runtime/NSApplication+Launch.h"

/// Made in memory and put in place when the application object is made: nothing is read from or
/// written to the user's defaults, and a theme chosen there does not replace it.
@interface PlatformAquaTheme : GSTheme
@end

static void Install(void) {
  [[NSNotificationCenter defaultCenter] removeObserver:[GSTheme class]];
  [PlatformAquaTheme setTheme:[[[PlatformAquaTheme alloc] initWithBundle:nil] autorelease]];
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }

@implementation PlatformAquaTheme

/// GNUstep calls this to put the user's theme in place.
+ (void)defaultsDidChange:(NSNotification *)notification {
  (void)notification;
}

- (NSString *)name {
  return @"Aqua";
}

/// A default button is told by its color, not by a picture of the Return key beside its title.
- (void)setKeyEquivalent:(NSString *)key forButtonCell:(NSButtonCell *)cell {
  (void)key;
  (void)cell;
}

- (void)drawButton:(NSRect)frame
                in:(NSCell *)cell
              view:(NSView *)view
             style:(int)style
             state:(GSThemeControlState)state {
  if (PlatformIsPushButton(cell)) {
    PlatformDrawPushButton(frame, (NSButtonCell *)cell, view, state);
  } else {
    [super drawButton:frame in:cell view:view style:style state:state];
  }
}

- (GSThemeMargins)buttonMarginsForCell:(NSCell *)cell
                                 style:(int)style
                                 state:(GSThemeControlState)state {
  if (!PlatformIsPushButton(cell)) {
    return [super buttonMarginsForCell:cell style:style state:state];
  }
  const NSEdgeInsets insets = PlatformInsetsOfCell(cell);
  GSThemeMargins margins = {.left = insets.left + 8,
                            .right = insets.right + 8,
                            .top = insets.top + 2,
                            .bottom = insets.bottom + 2};
  return margins;
}

- (void)drawFocusFrame:(NSRect)frame view:(NSView *)view {
  if (!PlatformFocusIsVisible([view window])) {
    return;
  }
  PlatformDrawFocusRing(frame, view);
}

@end
