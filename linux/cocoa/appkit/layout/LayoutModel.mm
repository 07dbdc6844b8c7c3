#import "layout/LayoutModel.h"

#include <algorithm>
#include <cmath>

#import "layout/PlatformLayoutConstraint.h"

namespace platform::layout {
namespace {

// Below every priority that can be set: what no constraint decides is small, and near its
// superview's top left corner.
constexpr double sSmallPriority = -1;
constexpr double sNearPriority = -2;

constexpr NSLayoutConstraintOrientation sOrientations[] = {NSLayoutConstraintOrientationHorizontal,
                                                           NSLayoutConstraintOrientationVertical};

double Along(NSLayoutConstraintOrientation orientation, NSSize size) {
  return orientation == NSLayoutConstraintOrientationHorizontal ? size.width : size.height;
}

double Along(NSLayoutConstraintOrientation orientation, NSPoint point) {
  return orientation == NSLayoutConstraintOrientationHorizontal ? point.x : point.y;
}

/// How much of a container's growth goes into the position and the size of its content: GNUstep's
/// autoresizing, which distributes it in proportion to what can grow.
struct Growth {
  double position = 0;
  double size = 0;
};

Growth GrowthOf(double container, double position, double size, bool nearFlexible,
                bool sizeFlexible, bool farFlexible) {
  const double far = container - position - size;
  const double flexible =
      (nearFlexible ? position : 0) + (sizeFlexible ? size : 0) + (farFlexible ? far : 0);
  const int parts = nearFlexible + sizeFlexible + farFlexible;
  if (parts == 0) {
    return {};
  }
  if (flexible <= 0) {
    return {nearFlexible ? 1.0 / parts : 0, sizeFlexible ? 1.0 / parts : 0};
  }
  return {nearFlexible ? position / flexible : 0, sizeFlexible ? size / flexible : 0};
}

/// The present size of a node's alignment rectangle.
double PresentSizeOf(const LayoutModel::Node &node, NSLayoutConstraintOrientation orientation) {
  const auto &extent = node.extents[orientation];
  return std::max(0.0,
                  Along(orientation, [node.view frame].size) - extent.nearInset - extent.farInset);
}

bool FollowsDirection(NSLayoutAttribute attribute) {
  return attribute == NSLayoutAttributeLeading || attribute == NSLayoutAttributeTrailing;
}

}  // namespace

NSPoint LocalOriginOf(NSView *view) {
  NSView *superview = [view superview];
  if (superview == nil) {
    return NSZeroPoint;
  }
  const NSRect frame = [view frame];
  const NSRect bounds = [superview bounds];
  const double y =
      [superview isFlipped] ? NSMinY(frame) - NSMinY(bounds) : NSMaxY(bounds) - NSMaxY(frame);
  return NSMakePoint(NSMinX(frame) - NSMinX(bounds), y);
}

LayoutModel::LayoutModel(NSView *root, RootSize rootSize) : rootSize_(rootSize) {
  want(root);
  gather(root);
  collect(root, -1);
  for (size_t i = 0; i < nodes_.size(); ++i) {
    if (nodes_[i].parent >= 0 && !nodes_[i].managed) {
      addMask(nodes_[i]);
    }
    if (nodes_[i].managed || (i == 0 && rootSize == RootSize::kSmallest)) {
      addIntrinsicSize(nodes_[i]);
    }
    if (nodes_[i].managed) {
      addTieBreaks(nodes_[i], i);
    }
  }
  for (const Node &node : nodes_) {
    if (node.state != nullptr) {
      for (PlatformLayoutConstraint *constraint in node.state->constraints) {
        addConstraint(constraint, node);
      }
    }
  }
  addRootSize(nodes_[0]);
}

const void *LayoutModel::identityOf(int number) const {
  const Origin &origin = origins_[number];
  return origin.constraint != nil ? static_cast<const void *>(origin.constraint)
                                  : static_cast<const void *>(origin.view);
}

NSString *LayoutModel::describe(int number) const {
  const Origin &origin = origins_[number];
  if (origin.constraint != nil) {
    return [origin.constraint description];
  }
  return [NSString stringWithFormat:@"<%s of %@:%p, frame %@>", origin.kind,
                                    NSStringFromClass([origin.view class]), origin.view,
                                    NSStringFromRect([origin.view frame])];
}

void LayoutModel::want(NSView *view) {
  while (view != nil && wanted_.insert(view).second) {
    view = [view superview];
  }
}

/// Finds the views that take part: placed by constraints or mentioned by one, and all above them.
void LayoutModel::gather(NSView *view) {
  if (LayoutState *state = ExistingState(view)) {
    if (!state->translatesMask) {
      want(view);
    }
    for (PlatformLayoutConstraint *constraint in state->constraints) {
      want(view);
      want([constraint firstItem]);
      want([constraint secondItem]);
    }
  }
  for (NSView *subview in [view subviews]) {
    gather(subview);
  }
}

void LayoutModel::collect(NSView *view, int parent) {
  if (wanted_.count(view) == 0) {
    return;
  }
  const int index = static_cast<int>(nodes_.size());
  LayoutState *state = ExistingState(view);
  const NSEdgeInsets insets = [view alignmentRectInsets];
  const bool managed = parent >= 0 && state != nullptr && !state->translatesMask;
  Node node = {view,       state,
               parent,     managed,
               NSZeroSize, {{0, 0, insets.left, insets.right}, {0, 0, insets.top, insets.bottom}}};
  for (NSLayoutConstraintOrientation orientation : sOrientations) {
    Extent &extent = node.extents[orientation];
    if (parent >= 0) {
      extent.start = system_.addVariable(-HUGE_VAL, HUGE_VAL);
      extent.size = system_.addVariable(0, HUGE_VAL);
    } else {
      const bool isGiven = rootSize_ == RootSize::kGiven;
      const double size = PresentSizeOf(node, orientation);
      extent.start = system_.addVariable(extent.nearInset, extent.nearInset);
      extent.size = system_.addVariable(isGiven ? size : 0, isGiven ? size : HUGE_VAL);
    }
  }
  nodes_.push_back(node);
  indices_[view] = index;
  for (NSView *subview in [view subviews]) {
    collect(subview, index);
  }
}

void LayoutModel::add(ConstraintSystem::Constraint constraint, const Origin &origin) {
  system_.addConstraint(std::move(constraint));
  origins_.push_back(origin);
}

void LayoutModel::addSoft(Variable variable, Relation relation, double constant, double priority,
                          double weight) {
  add({{{variable, 1}}, relation, constant, priority, weight}, {nil, nil, "preference"});
}

void LayoutModel::addRootSize(const Node &root) {
  for (NSLayoutConstraintOrientation orientation : sOrientations) {
    const Variable size = root.extents[orientation].size;
    if (rootSize_ == RootSize::kOfWindow) {
      addSoft(size, Relation::kEqual, PresentSizeOf(root, orientation),
              NSLayoutPriorityWindowSizeStayPut);
    } else if (rootSize_ == RootSize::kSmallest) {
      addSoft(size, Relation::kLessOrEqual, 0, NSLayoutPriorityFittingSizeCompression);
    }
  }
}

void LayoutModel::addMask(const Node &node) {
  // GNUstep takes the greater margin for the upper one, whether the superview is flipped or not.
  static constexpr NSUInteger sFlexible[][3] = {
      {NSViewMinXMargin, NSViewWidthSizable, NSViewMaxXMargin},
      {NSViewMaxYMargin, NSViewHeightSizable, NSViewMinYMargin}};
  const Node &parent = nodes_[node.parent];
  const NSUInteger mask = [parent.view autoresizesSubviews] ? [node.view autoresizingMask] : 0;
  const Origin origin = {nil, node.view, "NSAutoresizingMaskLayoutConstraint"};
  for (NSLayoutConstraintOrientation orientation : sOrientations) {
    const Extent &own = node.extents[orientation];
    const Extent &container = parent.extents[orientation];
    const double containerSize = Along(orientation, [parent.view frame].size);
    const double position = Along(orientation, LocalOriginOf(node.view));
    const double size = Along(orientation, [node.view frame].size);
    const auto &flexible = sFlexible[orientation];
    const Growth growth = GrowthOf(containerSize, position, size, mask & flexible[0],
                                   mask & flexible[1], mask & flexible[2]);
    // Of frames: position = p + g·(container − its present size). Insets turn that into alignment
    // rectangles.
    const double change = container.nearInset + container.farInset - containerSize;
    add({{{own.start, 1}, {container.start, -1}, {container.size, -growth.position}},
         Relation::kEqual,
         position + growth.position * change + own.nearInset - container.nearInset,
         ConstraintSystem::sRequired,
         1,
         true},
        origin);
    add({{{own.size, 1}, {container.size, -growth.size}},
         Relation::kEqual,
         size + growth.size * change - own.nearInset - own.farInset,
         ConstraintSystem::sRequired,
         1,
         true},
        origin);
  }
}

void LayoutModel::addIntrinsicSize(Node &node) {
  // Controls are asked every time; others, as on macOS, when they have invalidated their size.
  const bool known = node.state != nullptr && node.state->intrinsicKnown &&
                     ![node.view isKindOfClass:[NSControl class]];
  node.intrinsicSize = known ? node.state->intrinsicSize : [node.view intrinsicContentSize];
  const Origin origin = {nil, node.view, "NSContentSizeLayoutConstraint"};
  for (NSLayoutConstraintOrientation orientation : sOrientations) {
    const double size = Along(orientation, node.intrinsicSize);
    if (size < 0 || !std::isfinite(size)) {
      continue;
    }
    const Variable variable = node.extents[orientation].size;
    add({{{variable, 1}},
         Relation::kLessOrEqual,
         size,
         [node.view contentHuggingPriorityForOrientation:orientation]},
        origin);
    add({{{variable, 1}},
         Relation::kGreaterOrEqual,
         size,
         [node.view contentCompressionResistancePriorityForOrientation:orientation]},
        origin);
  }
}

void LayoutModel::addTieBreaks(const Node &node, size_t index) {
  // Different weights: of views that could grow alike the earlier one does, every time.
  const double weight = 1 + 0.001 * static_cast<double>(index);
  const Node &parent = nodes_[node.parent];
  for (NSLayoutConstraintOrientation orientation : sOrientations) {
    const Extent &own = node.extents[orientation];
    addSoft(own.size, Relation::kLessOrEqual, 0, sSmallPriority, weight);
    add({{{own.start, 1}, {parent.extents[orientation].start, -1}},
         Relation::kEqual,
         0,
         sNearPriority,
         weight},
        {nil, node.view, "preference"});
  }
}

/// Adds an attribute to the terms; returns what it has besides. Locations count from the corner
/// of the view that holds the constraint, which matters where there is a multiplier; mirrored ones
/// from its right side leftwards.
double LayoutModel::addAttribute(Terms &terms, const Node &node, NSLayoutAttribute attribute,
                                 double factor, const Node &holder, bool mirrored) {
  const auto location = [&](NSLayoutConstraintOrientation orientation, double share) {
    const Extent &own = node.extents[orientation];
    const Extent &origin = holder.extents[orientation];
    if (mirrored && orientation == NSLayoutConstraintOrientationHorizontal) {
      terms.push_back({origin.start, factor});
      terms.push_back({origin.size, factor});
      terms.push_back({own.start, -factor});
      terms.push_back({own.size, -factor * (1 - share)});
    } else {
      terms.push_back({own.start, factor});
      terms.push_back({own.size, factor * share});
      terms.push_back({origin.start, -factor});
    }
    return 0;
  };
  constexpr auto across = NSLayoutConstraintOrientationHorizontal;
  constexpr auto down = NSLayoutConstraintOrientationVertical;
  switch (attribute) {
    case NSLayoutAttributeLeft:
    case NSLayoutAttributeLeading:
      return location(across, 0);
    case NSLayoutAttributeRight:
    case NSLayoutAttributeTrailing:
      return location(across, 1);
    case NSLayoutAttributeCenterX:
      return location(across, 0.5);
    case NSLayoutAttributeTop:
      return location(down, 0);
    case NSLayoutAttributeBottom:
      return location(down, 1);
    case NSLayoutAttributeCenterY:
      return location(down, 0.5);
    case NSLayoutAttributeLastBaseline:
      location(down, 1);
      return -factor * [node.view lastBaselineOffsetFromBottom];
    case NSLayoutAttributeFirstBaseline:
      location(down, 0);
      return factor * [node.view firstBaselineOffsetFromTop];
    case NSLayoutAttributeWidth:
      terms.push_back({node.extents[across].size, factor});
      return 0;
    case NSLayoutAttributeHeight:
      terms.push_back({node.extents[down].size, factor});
      return 0;
    default:
      return 0;
  }
}

void LayoutModel::addConstraint(PlatformLayoutConstraint *constraint, const Node &holder) {
  const auto first = indices_.find([constraint firstItem]);
  if (first == indices_.end()) {
    return;
  }
  const bool mirrored =
      (FollowsDirection([constraint firstAttribute]) ||
       FollowsDirection([constraint secondAttribute])) &&
      [holder.view userInterfaceLayoutDirection] == NSUserInterfaceLayoutDirectionRightToLeft;
  Terms terms;
  double constant = [constraint constant];
  constant -=
      addAttribute(terms, nodes_[first->second], [constraint firstAttribute], 1, holder, mirrored);
  if ([constraint secondItem] != nil) {
    const auto second = indices_.find([constraint secondItem]);
    if (second == indices_.end()) {
      return;
    }
    constant -= addAttribute(terms, nodes_[second->second], [constraint secondAttribute],
                             -[constraint multiplier], holder, mirrored);
  }
  add({std::move(terms), static_cast<Relation>([constraint relation]), constant,
       [constraint priority]},
      {constraint, nil, nullptr});
}

}  // namespace platform::layout
