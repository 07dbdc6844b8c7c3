// Whether a window shows its focus ring.

#import <AppKit/NSWindow.h>

/// From the first move of the focus with the Tab key on. Before that it marks nothing a person
/// chose: Return goes to the default button wherever the focus is.
BOOL PlatformFocusIsVisible(NSWindow *window);
