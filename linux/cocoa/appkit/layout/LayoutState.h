#import <AppKit/AppKit.h>

#include <optional>
#include <vector>

@class PlatformLayoutConstraint;

namespace platform::layout {

/// Edges in points, counted from the top left corner of the laid-out root, downwards.
struct Edges {
  double left = 0, top = 0, right = 0, bottom = 0;
};

/// What Auto Layout keeps about a view, as an associated object of it.
struct LayoutState {
  explicit LayoutState(NSView *of);
  ~LayoutState();
  LayoutState(const LayoutState &) = delete;
  LayoutState &operator=(const LayoutState &) = delete;

  NSView *const view;  ///< Not retained.
  bool translatesMask = true;
  bool needsLayout = false;
  bool needsUpdateConstraints = true;
  bool dirty = false;  ///< Of a root: a layout pass is scheduled.
  bool intrinsicKnown = false;
  bool placed = false;  ///< Whether `edges` hold.
  NSSize intrinsicSize = NSZeroSize;
  Edges edges;                    ///< Of the alignment rectangle, found by the last pass.
  float hugging[2] = {0, 0};      ///< By orientation; 0: what the class has.
  float compression[2] = {0, 0};  ///< Likewise.
  CGFloat preferredMaxLayoutWidth = 0;
  std::optional<NSUserInterfaceLayoutDirection> direction;  ///< Of its own.
  NSMutableArray *const constraints;                        ///< Held by the view. Owned.
  std::vector<PlatformLayoutConstraint *> mentions;  ///< Of the view, wherever held. Not retained.
  std::vector<const void *> reported;  ///< Of a root: conflicts logged in the last pass.
};

/// The state of a view, or null.
LayoutState *ExistingState(NSView *view);

/// The state of a view, made at the first call.
LayoutState &StateOf(NSView *view);

/// For a view that is deallocated, on any thread. Constraints that mention the view mention nil
/// then.
void ForgetState(NSView *view);

}  // namespace platform::layout
