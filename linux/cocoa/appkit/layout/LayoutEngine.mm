#import "layout/LayoutEngine.h"

#include <algorithm>
#include <cmath>
#include <vector>

#import "layout/LayoutModel.h"
#import "layout/LayoutState.h"
#import "layout/PlatformLayoutConstraint.h"

namespace platform::layout {
namespace {

/// Limits a layout that invalidates itself.
constexpr int sMaximumPasses = 4;

bool sPlacing = false;
bool sPassing = false;

/// Rounds to whole points, as on a display of one pixel a point. Differences below a thousandth are
/// the solver's tolerance and must not decide a half.
double WholePoints(double value) { return std::floor(std::round(value * 1000) / 1000 + 0.5); }

void Report(const LayoutModel &model, const ConstraintSystem::Solution &solution,
            LayoutState &root) {
  std::vector<const void *> reported;
  for (const auto &conflict : solution.conflicts) {
    const void *broken = model.identityOf(conflict.broken);
    reported.push_back(broken);
    if (std::find(root.reported.begin(), root.reported.end(), broken) != root.reported.end()) {
      continue;  // Every display would say it again.
    }
    NSMutableString *members = [NSMutableString string];
    for (int member : conflict.members) {
      [members appendFormat:@"    \"%@\",\n", model.describe(member)];
    }
    NSLog(@"Unable to simultaneously satisfy constraints:\n(\n%@)\n\nWill attempt to recover by "
          @"breaking constraint \n%@",
          members, model.describe(conflict.broken));
  }
  root.reported = std::move(reported);
}

RootSize RootSizeOf(NSView *root, const LayoutState &state) {
  if ([root window] != nil) {
    return RootSize::kOfWindow;
  }
  return state.translatesMask ? RootSize::kGiven : RootSize::kSmallest;
}

/// Gives a root another size, and its window with it, whose top left corner stays.
void Resize(NSView *root, NSSize size) {
  NSWindow *window = [root window];
  if (window == nil) {
    [root setFrameSize:size];
    return;
  }
  NSRect frame = [window frame];
  const NSSize change = {size.width - NSWidth([root frame]), size.height - NSHeight([root frame])};
  frame.size.width += change.width;
  frame.size.height += change.height;
  frame.origin.y -= change.height;
  [window setFrame:frame display:NO];
}

/// Finds all frames below a root and the root's own size where that is free.
void FindFrames(NSView *root, LayoutState &state) {
  const LayoutModel model(root, RootSizeOf(root, state));
  const auto solution = model.solve();
  Report(model, solution, state);
  for (const LayoutModel::Node &node : model.nodes()) {
    const auto &[across, down] = node.extents;
    const double left = solution.values[across.start];
    const double top = solution.values[down.start];
    const Edges edges = {WholePoints(left), WholePoints(top),
                         WholePoints(left + solution.values[across.size]),
                         WholePoints(top + solution.values[down.size])};
    if (node.managed) {
      node.state->edges = edges;
      node.state->placed = true;
      node.state->intrinsicSize = node.intrinsicSize;
      node.state->intrinsicKnown = true;
    } else if (node.parent < 0) {
      const NSRect alignment = NSMakeRect(0, 0, edges.right - edges.left, edges.bottom - edges.top);
      const NSSize size = [root frameForAlignmentRect:alignment].size;
      const NSSize present = [root frame].size;
      if (size.width != WholePoints(present.width) || size.height != WholePoints(present.height)) {
        Resize(root, size);
      }
    }
  }
}

/// Sends layout from the top down, where a frame was found or the view asked for it.
void PlaceBelow(NSView *view) {
  NSArray *subviews = [NSArray arrayWithArray:[view subviews]];
  LayoutState *state = ExistingState(view);
  bool due = state != nullptr && state->needsLayout;
  for (NSView *subview in subviews) {
    const LayoutState *each = ExistingState(subview);
    due = due || (each != nullptr && each->placed);
  }
  if (due) {
    if (state != nullptr) {
      state->needsLayout = false;
    }
    [view layout];
  }
  for (NSView *subview in subviews) {
    PlaceBelow(subview);
  }
}

/// Whether a control's contents have grown or shrunk: GNUstep's controls and cells have no single
/// place that all changes of text, font and image go through, so they are asked.
bool IntrinsicSizesChanged(NSView *view) {
  const LayoutState *state = ExistingState(view);
  if (state != nullptr && state->intrinsicKnown && [view isKindOfClass:[NSControl class]] &&
      !NSEqualSizes(state->intrinsicSize, [view intrinsicContentSize])) {
    return true;
  }
  for (NSView *subview in [view subviews]) {
    if (IntrinsicSizesChanged(subview)) {
      return true;
    }
  }
  return false;
}

}  // namespace

NSView *RootOf(NSView *view) {
  NSWindow *window = [view window];
  NSView *content = [window contentView];
  NSView *top = nil;
  for (; view != nil; view = [view superview]) {
    if (view == content) {
      return view;
    }
    top = view;
  }
  return window == nil ? top : nil;
}

void Invalidate(NSView *view) {
  NSView *root = RootOf(view);
  if (root == nil) {
    return;
  }
  StateOf(root).dirty = true;
  NSWindow *window = [root window];
  if ([window isVisible]) {
    [window setViewsNeedDisplay:YES];
  }
}

void InvalidateIfLaidOut(NSView *view) {
  NSView *root = RootOf(view);
  if (root != nil && ExistingState(root) != nullptr) {
    Invalidate(root);
  }
}

void LayOutIfNeeded(NSView *root) {
  LayoutState *state = root == nil ? nullptr : ExistingState(root);
  if (state == nullptr || sPassing) {
    return;
  }
  if (!state->dirty && !IntrinsicSizesChanged(root)) {
    return;
  }
  sPassing = true;
  [root retain];
  @try {
    int passes = 0;
    do {
      UpdateConstraintsBelow(root);
      state->dirty = false;
      sPlacing = true;
      FindFrames(root, *state);
      PlaceBelow(root);
      sPlacing = false;
    } while (++passes < sMaximumPasses && state->dirty);
  } @finally {
    sPlacing = false;
    sPassing = false;
    [root release];
  }
}

void UpdateConstraintsBelow(NSView *view) {
  for (NSView *subview in [NSArray arrayWithArray:[view subviews]]) {
    UpdateConstraintsBelow(subview);
  }
  static const IMP inherited = [NSView instanceMethodForSelector:@selector(updateConstraints)];
  LayoutState *state = ExistingState(view);
  if (state == nullptr && [view methodForSelector:@selector(updateConstraints)] != inherited) {
    state = &StateOf(view);
  }
  if (state != nullptr && state->needsUpdateConstraints) {
    state->needsUpdateConstraints = false;
    [view updateConstraints];
  }
}

NSSize FittingSizeOf(NSView *view) {
  UpdateConstraintsBelow(view);
  const LayoutModel model(view, RootSize::kSmallest);
  const auto solution = model.solve();
  const auto &[across, down] = model.nodes().front().extents;
  const auto rounded = [](double value) { return std::ceil(std::round(value * 1000) / 1000); };
  return NSMakeSize(rounded(solution.values[across.size]), rounded(solution.values[down.size]));
}

void PlaceSubviewsOf(NSView *view) {
  NSView *root = RootOf(view);
  if (root == nil) {
    return;
  }
  double left = 0;
  double top = 0;
  for (NSView *each = view; each != root; each = [each superview]) {
    const NSPoint local = LocalOriginOf(each);
    left += local.x;
    top += local.y;
  }
  const NSRect bounds = [view bounds];
  const bool flipped = [view isFlipped];
  for (NSView *subview in [NSArray arrayWithArray:[view subviews]]) {
    const LayoutState *state = ExistingState(subview);
    if (state == nullptr || !state->placed) {
      continue;
    }
    const Edges &edges = state->edges;
    NSRect rect = NSMakeRect(NSMinX(bounds) + edges.left - left, 0, edges.right - edges.left,
                             edges.bottom - edges.top);
    rect.origin.y =
        flipped ? NSMinY(bounds) + edges.top - top : NSMaxY(bounds) - (edges.bottom - top);
    const NSRect frame = [subview frameForAlignmentRect:rect];
    if (!NSEqualRects(frame, [subview frame])) {
      // GNUstep's setFrame: leaves redrawing to the caller.
      [view setNeedsDisplayInRect:[subview frame]];
      [subview setFrame:frame];
      [subview setNeedsDisplay:YES];
    }
  }
}

void Detach(NSView *view) {
  std::vector<NSView *> views = {view};
  for (size_t i = 0; i < views.size(); ++i) {
    for (NSView *subview in [views[i] subviews]) {
      views.push_back(subview);
    }
  }
  for (NSView *each : views) {
    LayoutState *state = ExistingState(each);
    if (state == nullptr) {
      continue;
    }
    state->placed = false;
    const std::vector<PlatformLayoutConstraint *> mentions = state->mentions;
    for (PlatformLayoutConstraint *constraint : mentions) {
      // The list is a copy, and removing may deallocate: look whether it is still mentioned.
      if (std::find(state->mentions.begin(), state->mentions.end(), constraint) ==
          state->mentions.end()) {
        continue;
      }
      NSView *holder = [constraint holder];
      if (holder != nil && ![holder isDescendantOf:view]) {
        [holder removeConstraint:constraint];
      }
    }
  }
}

bool IsPlacing() { return sPlacing; }

}  // namespace platform::layout
