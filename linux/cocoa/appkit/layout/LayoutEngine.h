#import <AppKit/AppKit.h>

// Everything here is for the main thread.

namespace platform::layout {

/// The view at the top of a layout: the content view of the view's window, or the topmost view
/// where there is no window. Nil outside of content views, and for nil.
NSView *RootOf(NSView *view);

/// Schedules a layout pass before the next display. Nil is ignored.
void Invalidate(NSView *view);

/// The same, where Auto Layout is in use in the view's hierarchy; otherwise nothing.
void InvalidateIfLaidOut(NSView *view);

/// Runs a layout pass if one is scheduled or a control's intrinsic size has changed since the last
/// one.
void LayOutIfNeeded(NSView *root);

/// Sends updateConstraints where it is due.
void UpdateConstraintsBelow(NSView *view);

/// The smallest size of the alignment rectangle of a view that its constraints allow.
NSSize FittingSizeOf(NSView *view);

/// Sets the frames of a view's subviews that the last pass found.
void PlaceSubviewsOf(NSView *view);

/// Takes a view and those below it out of the constraints that views above them hold.
void Detach(NSView *view);

/// Whether a frame is being set by a pass.
bool IsPlacing();

}  // namespace platform::layout
