#import <AppKit/AppKit.h>

#import "layout/LayoutEngine.h"
#import "layout/LayoutState.h"

using namespace platform::layout;

const CGFloat NSViewNoIntrinsicMetric = -1;
const CGFloat NSViewNoInstrinsicMetric = -1;

namespace {

void checkPriority(NSLayoutPriority priority) {
  if (!(priority > 0 && priority <= NSLayoutPriorityRequired)) {
    [NSException raise:NSInvalidArgumentException
                format:@"Priorities must be greater than 0 and at most %g, not %g",
                       NSLayoutPriorityRequired, priority];
  }
}

size_t indexOf(NSLayoutConstraintOrientation orientation) {
  return orientation == NSLayoutConstraintOrientationVertical ? 1 : 0;
}

}  // namespace

@implementation NSView (PlatformIntrinsicSize)

- (NSSize)intrinsicContentSize {
  return NSMakeSize(NSViewNoIntrinsicMetric, NSViewNoIntrinsicMetric);
}

- (void)invalidateIntrinsicContentSize {
  if (LayoutState *state = existingState(self)) {
    state->intrinsicKnown = false;
    invalidateIfLaidOut(self);
  }
}

- (NSLayoutPriority)contentHuggingPriorityForOrientation:
    (NSLayoutConstraintOrientation)orientation {
  const LayoutState *state = existingState(self);
  if (state != nullptr && state->hugging[indexOf(orientation)] > 0) {
    return state->hugging[indexOf(orientation)];
  }
  const bool holdsHeight =
      [self isKindOfClass:[NSTextField class]] || [self isKindOfClass:[NSButton class]];
  return holdsHeight && orientation == NSLayoutConstraintOrientationVertical
             ? NSLayoutPriorityDefaultHigh
             : NSLayoutPriorityDefaultLow;
}

- (void)setContentHuggingPriority:(NSLayoutPriority)priority
                   forOrientation:(NSLayoutConstraintOrientation)orientation {
  checkPriority(priority);
  stateOf(self).hugging[indexOf(orientation)] = priority;
  invalidate(self);
}

- (NSLayoutPriority)contentCompressionResistancePriorityForOrientation:
    (NSLayoutConstraintOrientation)orientation {
  const LayoutState *state = existingState(self);
  return state != nullptr && state->compression[indexOf(orientation)] > 0
             ? state->compression[indexOf(orientation)]
             : NSLayoutPriorityDefaultHigh;
}

- (void)setContentCompressionResistancePriority:(NSLayoutPriority)priority
                                 forOrientation:(NSLayoutConstraintOrientation)orientation {
  checkPriority(priority);
  stateOf(self).compression[indexOf(orientation)] = priority;
  invalidate(self);
}

@end
