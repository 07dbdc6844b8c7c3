// Whether a window shows its focus ring.

#ifndef PLATFORM_FOCUS_VISIBILITY_H
#define PLATFORM_FOCUS_VISIBILITY_H

#import <AppKit/NSWindow.h>

/// From the first move of the focus with the Tab key on. Before that it marks nothing a person
/// chose: Return goes to the default button wherever the focus is.
BOOL PlatformFocusIsVisible(NSWindow *window);

#endif
