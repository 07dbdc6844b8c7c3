#import <AppKit/AppKit.h>

#import "layout/LayoutEngine.h"
#import "layout/LayoutState.h"
#import "layout/PlatformLayoutConstraint.h"

using namespace platform::layout;

@implementation NSView (PlatformConstraints)

- (NSArray *)constraints {
  const LayoutState *state = ExistingState(self);
  return state == nullptr ? [NSArray array] : [NSArray arrayWithArray:state->constraints];
}

- (void)addConstraint:(NSLayoutConstraint *)constraint {
  if (![constraint isKindOfClass:[PlatformLayoutConstraint class]]) {
    [NSException raise:NSInvalidArgumentException
                format:@"%@ is not a constraint that can be added to a view", constraint];
  }
  PlatformLayoutConstraint *added = (PlatformLayoutConstraint *)constraint;
  if ([added holder] == self) {
    return;
  }
  NSView *first = [added firstItem];
  NSView *second = [added secondItem];
  if (![first isDescendantOf:self] || (second != nil && ![second isDescendantOf:self])) {
    [NSException raise:NSGenericException
                format:@"Unable to install constraint on view.  Does the constraint reference "
                       @"something from outside the subtree of the view?  That's illegal. "
                       @"constraint:%@ view:%@",
                       added, self];
  }
  [added retain];
  [[added holder] removeConstraint:added];
  [StateOf(self).constraints addObject:added];
  [added setHolder:self];
  [added release];
  Invalidate(self);
}

- (void)addConstraints:(NSArray *)constraints {
  for (NSLayoutConstraint *constraint in constraints) {
    [self addConstraint:constraint];
  }
}

- (void)removeConstraint:(NSLayoutConstraint *)constraint {
  const LayoutState *state = ExistingState(self);
  if (state == nullptr || ![constraint isKindOfClass:[PlatformLayoutConstraint class]] ||
      [(PlatformLayoutConstraint *)constraint holder] != self) {
    return;
  }
  [(PlatformLayoutConstraint *)constraint setHolder:nil];
  [state->constraints removeObjectIdenticalTo:constraint];
  Invalidate(self);
}

- (void)removeConstraints:(NSArray *)constraints {
  for (NSLayoutConstraint *constraint in constraints) {
    [self removeConstraint:constraint];
  }
}

- (BOOL)translatesAutoresizingMaskIntoConstraints {
  const LayoutState *state = ExistingState(self);
  return state == nullptr || state->translatesMask;
}

- (void)setTranslatesAutoresizingMaskIntoConstraints:(BOOL)translates {
  if (translates == [self translatesAutoresizingMaskIntoConstraints]) {
    return;
  }
  LayoutState &state = StateOf(self);
  state.translatesMask = translates;
  state.placed = false;
  Invalidate(self);
}

@end
