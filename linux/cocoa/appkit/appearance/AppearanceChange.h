// Appearances of application, windows and views: where they are kept and who is told of a change.

#import <AppKit/NSAppearanceCustomization.h>

/// The appearance set for this application, window or view itself, or nil.
NSAppearance *PlatformOwnAppearance(id owner);

/// Sets it and notifies the observers of the owner and of everything in it whose effective
/// appearance that changes.
void PlatformSetOwnAppearance(id owner, NSAppearance *appearance);

/// Whether a control in this view is to be drawn for a dark background.
BOOL PlatformAppearanceIsDark(NSView *view);
