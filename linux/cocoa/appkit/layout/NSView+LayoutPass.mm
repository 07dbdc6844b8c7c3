#import <AppKit/AppKit.h>

#import "layout/LayoutEngine.h"
#import "layout/LayoutState.h"

using namespace platform::layout;

@implementation NSView (PlatformLayoutPass)

- (BOOL)needsUpdateConstraints {
  const LayoutState *state = ExistingState(self);
  return state == nullptr || state->needsUpdateConstraints;
}

- (void)setNeedsUpdateConstraints:(BOOL)needed {
  if (needed) {
    StateOf(self).needsUpdateConstraints = true;
    Invalidate(self);
  }
}

- (void)updateConstraints {
  // A subclass that is asked by hand and not by a pass has done what was due.
  if (LayoutState *state = ExistingState(self)) {
    state->needsUpdateConstraints = false;
  }
}

- (void)updateConstraintsForSubtreeIfNeeded {
  UpdateConstraintsBelow(self);
}

- (BOOL)needsLayout {
  const LayoutState *state = ExistingState(self);
  return state != nullptr && (state->needsLayout || state->dirty);
}

- (void)setNeedsLayout:(BOOL)needed {
  if (needed) {
    StateOf(self).needsLayout = true;
    Invalidate(self);
  }
}

- (void)layout {
  PlaceSubviewsOf(self);
}

- (void)layoutSubtreeIfNeeded {
  LayOutIfNeeded(RootOf(self));
}

- (NSSize)fittingSize {
  const NSRect alignment = {NSZeroPoint, FittingSizeOf(self)};
  return [self frameForAlignmentRect:alignment].size;
}

@end
