// Appearances of application, windows and views: where they are kept and who is told of a change.

#ifndef PLATFORM_APPKIT_LOOK_APPEARANCECHANGE_H
#define PLATFORM_APPKIT_LOOK_APPEARANCECHANGE_H

#import <AppKit/NSAppearanceCustomization.h>

/// The appearance set for this application, window or view itself, or nil.
NSAppearance *PlatformOwnAppearance(id owner);

/// Sets it and notifies every observed object whose effective appearance that changes.
void PlatformSetOwnAppearance(id owner, NSAppearance *appearance);

/// To be told of every observer before it is added.
void PlatformNoteAppearanceObserver(id owner, NSString *keyPath);

/// Whether a control in this view is to be drawn for a dark background.
BOOL PlatformAppearanceIsDark(NSView *view);

#endif
