#import <AppKit/AppKit.h>

#import "layout/LayoutEngine.h"
#import "layout/LayoutState.h"

using namespace platform::layout;

const CGFloat NSViewNoIntrinsicMetric = -1;
const CGFloat NSViewNoInstrinsicMetric = -1;

namespace {

void CheckPriority(NSLayoutPriority priority) {
  if (!(priority > 0 && priority <= NSLayoutPriorityRequired)) {
    [NSException raise:NSInvalidArgumentException
                format:@"Priorities must be greater than 0 and at most %g, not %g",
                       NSLayoutPriorityRequired, priority];
  }
}

size_t IndexOf(NSLayoutConstraintOrientation orientation) {
  return orientation == NSLayoutConstraintOrientationVertical ? 1 : 0;
}

}  // namespace

@implementation NSView (PlatformIntrinsicSize)

- (NSSize)intrinsicContentSize {
  return NSMakeSize(NSViewNoIntrinsicMetric, NSViewNoIntrinsicMetric);
}

- (void)invalidateIntrinsicContentSize {
  if (LayoutState *state = ExistingState(self)) {
    state->intrinsicKnown = false;
    InvalidateIfLaidOut(self);
  }
}

- (NSLayoutPriority)contentHuggingPriorityForOrientation:
    (NSLayoutConstraintOrientation)orientation {
  const LayoutState *state = ExistingState(self);
  if (state != nullptr && state->hugging[IndexOf(orientation)] > 0) {
    return state->hugging[IndexOf(orientation)];
  }
  const bool holdsHeight =
      [self isKindOfClass:[NSTextField class]] || [self isKindOfClass:[NSButton class]];
  return holdsHeight && orientation == NSLayoutConstraintOrientationVertical
             ? NSLayoutPriorityDefaultHigh
             : NSLayoutPriorityDefaultLow;
}

- (void)setContentHuggingPriority:(NSLayoutPriority)priority
                   forOrientation:(NSLayoutConstraintOrientation)orientation {
  CheckPriority(priority);
  StateOf(self).hugging[IndexOf(orientation)] = priority;
  Invalidate(self);
}

- (NSLayoutPriority)contentCompressionResistancePriorityForOrientation:
    (NSLayoutConstraintOrientation)orientation {
  const LayoutState *state = ExistingState(self);
  return state != nullptr && state->compression[IndexOf(orientation)] > 0
             ? state->compression[IndexOf(orientation)]
             : NSLayoutPriorityDefaultHigh;
}

- (void)setContentCompressionResistancePriority:(NSLayoutPriority)priority
                                 forOrientation:(NSLayoutConstraintOrientation)orientation {
  CheckPriority(priority);
  StateOf(self).compression[IndexOf(orientation)] = priority;
  Invalidate(self);
}

@end
