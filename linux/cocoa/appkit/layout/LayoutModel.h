#import <AppKit/AppKit.h>

#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "layout/ConstraintSystem.h"
#import "layout/LayoutState.h"

namespace platform::layout {

/// Where the top left corner of a view lies, from that of its superview's frame.
NSPoint LocalOriginOf(NSView *view);

/// What decides about the size of a hierarchy's topmost view.
enum class RootSize {
  kGiven,     ///< It has its present size.
  kOfWindow,  ///< Its present size, at the priority at which a window keeps its own.
  kSmallest,  ///< The smallest that is possible.
};

/// One hierarchy as a system of linear constraints. Variables are alignment rectangles, in points
/// from the top left corner of the root. For the main thread, and not beyond one pass: views are
/// not retained.
class LayoutModel {
 public:
  using Variable = ConstraintSystem::Variable;

  /// One direction of a view's alignment rectangle, and what of its frame lies outside.
  struct Extent {
    Variable start, size;
    double nearInset, farInset;
  };

  /// A view that takes part.
  struct Node {
    NSView *view;
    LayoutState *state;  ///< Null: the view has no constraints and translates its mask.
    int parent;          ///< Index; -1: the root, which is the first node.
    bool managed;        ///< Constraints decide the frame.
    NSSize intrinsicSize;
    Extent extents[2];  ///< By orientation.
  };

  LayoutModel(NSView *root, RootSize rootSize);

  const std::vector<Node> &nodes() const { return nodes_; }

  ConstraintSystem::Solution solve() const { return system_.solve(); }

  /// What identifies a constraint of the solution from one pass to the next.
  const void *identityOf(int number) const;

  /// A constraint of the solution, for the log.
  NSString *describe(int number) const;

 private:
  using Terms = std::vector<ConstraintSystem::Term>;

  /// Where a constraint of the system comes from: an NSLayoutConstraint, or a kind for a view.
  struct Origin {
    PlatformLayoutConstraint *constraint;
    NSView *view;
    const char *kind;
  };

  void want(NSView *view);
  void gather(NSView *view);
  void collect(NSView *view, int parent);
  void add(ConstraintSystem::Constraint constraint, const Origin &origin);
  void addSoft(Variable variable, Relation relation, double constant, double priority,
               double weight = 1);
  void addRootSize(const Node &root);
  void addMask(const Node &node);
  void addIntrinsicSize(Node &node);
  void addTieBreaks(const Node &node, size_t index);
  static double addAttribute(Terms &terms, const Node &node, NSLayoutAttribute attribute,
                             double factor, const Node &holder, bool mirrored);
  void addConstraint(PlatformLayoutConstraint *constraint, const Node &holder);

  const RootSize rootSize_;
  ConstraintSystem system_;
  std::vector<Node> nodes_;
  std::vector<Origin> origins_;  // By number of the constraint.
  std::unordered_map<const void *, int> indices_;
  std::unordered_set<const void *> wanted_;
};

}  // namespace platform::layout
