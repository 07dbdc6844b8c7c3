#import <AppKit/AppKit.h>

#import "layout/LayoutEngine.h"
#import "layout/LayoutState.h"

using namespace platform::layout;

@implementation NSView (PlatformLayoutPass)

- (BOOL)needsUpdateConstraints {
  const LayoutState *state = existingState(self);
  return state == nullptr || state->needsUpdateConstraints;
}

- (void)setNeedsUpdateConstraints:(BOOL)needed {
  if (needed) {
    stateOf(self).needsUpdateConstraints = true;
    invalidate(self);
  }
}

- (void)updateConstraints {
  // A subclass that is asked by hand and not by a pass has done what was due.
  if (LayoutState *state = existingState(self)) {
    state->needsUpdateConstraints = false;
  }
}

- (void)updateConstraintsForSubtreeIfNeeded {
  updateConstraintsBelow(self);
}

- (BOOL)needsLayout {
  const LayoutState *state = existingState(self);
  return state != nullptr && (state->needsLayout || state->dirty);
}

- (void)setNeedsLayout:(BOOL)needed {
  if (needed) {
    stateOf(self).needsLayout = true;
    invalidate(self);
  }
}

- (void)layout {
  placeSubviewsOf(self);
}

- (void)layoutSubtreeIfNeeded {
  layOutIfNeeded(rootOf(self));
}

- (NSSize)fittingSize {
  const NSRect alignment = {NSZeroPoint, fittingSizeOf(self)};
  return [self frameForAlignmentRect:alignment].size;
}

@end
