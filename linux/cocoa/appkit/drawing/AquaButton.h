// Push buttons as a Mac draws them.

#import <AppKit/NSButtonCell.h>
#import <GNUstepGUI/GSTheme.h>

/// Whether this is a bordered button with the rounded bezel, and none of a menu.
BOOL PlatformIsPushButton(NSCell *cell);

/// Whether this push button is the one that Return presses.
BOOL PlatformIsDefaultButton(NSButtonCell *cell);

/// Draws the bezel, inside the insets of the frame. The view has the focus.
void PlatformDrawPushButton(NSRect frame, NSButtonCell *cell, NSView *view,
                            GSThemeControlState state);

/// Draws the ring of the control that has the keyboard focus, inside `frame`.
void PlatformDrawFocusRing(NSRect frame, NSView *view);
