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
NSSize PresentSizeOf(const LayoutModel::Node &node) {
  const NSSize frame = [node.view frame].size;
  return NSMakeSize(std::max(0.0, frame.width - node.insets.left - node.insets.right),
                    std::max(0.0, frame.height - node.insets.top - node.insets.bottom));
}

bool FollowsDirection(NSLayoutAttribute attribute) {
  return attribute == NSLayoutAttributeLeading || attribute == NSLayoutAttributeTrailing;
}

}  // namespace

LocalFrame LocalFrameOf(NSView *view) {
  const NSRect frame = [view frame];
  NSView *superview = [view superview];
  if (superview == nil) {
    return {0, 0, frame.size.width, frame.size.height};
  }
  const NSRect bounds = [superview bounds];
  const double y =
      [superview isFlipped] ? NSMinY(frame) - NSMinY(bounds) : NSMaxY(bounds) - NSMaxY(frame);
  return {NSMinX(frame) - NSMinX(bounds), y, frame.size.width, frame.size.height};
}

LayoutModel::Extent LayoutModel::horizontal(const Node &node) {
  return {node.left, node.width, node.insets.left, node.insets.right};
}

LayoutModel::Extent LayoutModel::vertical(const Node &node) {
  return {node.top, node.height, node.insets.top, node.insets.bottom};
}

LayoutModel::LayoutModel(NSView *root, RootSize rootSize) : rootSize_(rootSize) {
  want(root);
  gather(root);
  collect(root, -1);
  for (size_t i = 0; i < nodes_.size(); ++i) {
    if (nodes_[i].parent >= 0 && !nodes_[i].managed) {
      addMask(nodes_[i]);
    }
    if (nodes_[i].managed || (i == 0 && rootSize == RootSize::Smallest)) {
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
  Node node = {view, state, parent, managed, insets, NSZeroSize, 0, 0, 0, 0};
  if (parent >= 0) {
    node.left = system_.addVariable(-HUGE_VAL, HUGE_VAL);
    node.top = system_.addVariable(-HUGE_VAL, HUGE_VAL);
    node.width = system_.addVariable(0, HUGE_VAL);
    node.height = system_.addVariable(0, HUGE_VAL);
  } else {
    const bool isGiven = rootSize_ == RootSize::Given;
    const NSSize size = PresentSizeOf(node);
    node.left = system_.addVariable(insets.left, insets.left);
    node.top = system_.addVariable(insets.top, insets.top);
    node.width = system_.addVariable(isGiven ? size.width : 0, isGiven ? size.width : HUGE_VAL);
    node.height = system_.addVariable(isGiven ? size.height : 0, isGiven ? size.height : HUGE_VAL);
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
  const NSSize size = PresentSizeOf(root);
  switch (rootSize_) {
    case RootSize::Given:
      break;
    case RootSize::OfWindow:
      addSoft(root.width, Relation::Equal, size.width, NSLayoutPriorityWindowSizeStayPut);
      addSoft(root.height, Relation::Equal, size.height, NSLayoutPriorityWindowSizeStayPut);
      break;
    case RootSize::Smallest:
      addSoft(root.width, Relation::LessOrEqual, 0, NSLayoutPriorityFittingSizeCompression);
      addSoft(root.height, Relation::LessOrEqual, 0, NSLayoutPriorityFittingSizeCompression);
      break;
  }
}

void LayoutModel::addMask(const Node &node) {
  const Node &parent = nodes_[node.parent];
  const LocalFrame local = LocalFrameOf(node.view);
  const NSSize container = [parent.view frame].size;
  const NSUInteger mask = [parent.view autoresizesSubviews] ? [node.view autoresizingMask] : 0;
  addMaskAlong(node.view, horizontal(node), horizontal(parent), container.width, local.x,
               local.width, mask & NSViewMinXMargin, mask & NSViewWidthSizable,
               mask & NSViewMaxXMargin);
  // GNUstep takes the greater margin for the upper one, whether the superview is flipped or not.
  addMaskAlong(node.view, vertical(node), vertical(parent), container.height, local.y, local.height,
               mask & NSViewMaxYMargin, mask & NSViewHeightSizable, mask & NSViewMinYMargin);
}

void LayoutModel::addMaskAlong(NSView *view, const Extent &own, const Extent &container,
                               double containerSize, double position, double size,
                               bool nearFlexible, bool sizeFlexible, bool farFlexible) {
  const Growth growth =
      GrowthOf(containerSize, position, size, nearFlexible, sizeFlexible, farFlexible);
  // Of frames: position = p + g·(container − its present size). Insets turn that into alignment
  // rectangles.
  const double change = container.nearInset + container.farInset - containerSize;
  const Origin origin = {nil, view, "NSAutoresizingMaskLayoutConstraint"};
  add({{{own.start, 1}, {container.start, -1}, {container.size, -growth.position}},
       Relation::Equal,
       position + growth.position * change + own.nearInset - container.nearInset,
       ConstraintSystem::sRequired,
       1,
       true},
      origin);
  add({{{own.size, 1}, {container.size, -growth.size}},
       Relation::Equal,
       size + growth.size * change - own.nearInset - own.farInset,
       ConstraintSystem::sRequired,
       1,
       true},
      origin);
}

void LayoutModel::addIntrinsicSize(Node &node) {
  // Controls are asked every time; others, as on macOS, when they have invalidated their size.
  const bool known = node.state != nullptr && node.state->intrinsicKnown &&
                     ![node.view isKindOfClass:[NSControl class]];
  node.intrinsicSize = known ? node.state->intrinsicSize : [node.view intrinsicContentSize];
  addIntrinsicSizeAlong(node, node.width, node.intrinsicSize.width,
                        NSLayoutConstraintOrientationHorizontal);
  addIntrinsicSizeAlong(node, node.height, node.intrinsicSize.height,
                        NSLayoutConstraintOrientationVertical);
}

void LayoutModel::addIntrinsicSizeAlong(const Node &node, Variable variable, CGFloat size,
                                        NSLayoutConstraintOrientation orientation) {
  if (size < 0 || !std::isfinite(size)) {
    return;
  }
  const Origin origin = {nil, node.view, "NSContentSizeLayoutConstraint"};
  add({{{variable, 1}},
       Relation::LessOrEqual,
       size,
       [node.view contentHuggingPriorityForOrientation:orientation]},
      origin);
  add({{{variable, 1}},
       Relation::GreaterOrEqual,
       size,
       [node.view contentCompressionResistancePriorityForOrientation:orientation]},
      origin);
}

void LayoutModel::addTieBreaks(const Node &node, size_t index) {
  // Different weights: of views that could grow alike the earlier one does, every time.
  const double weight = 1 + 0.001 * static_cast<double>(index);
  addSoft(node.width, Relation::LessOrEqual, 0, sSmallPriority, weight);
  addSoft(node.height, Relation::LessOrEqual, 0, sSmallPriority, weight);
  const Node &parent = nodes_[node.parent];
  const Origin origin = {nil, node.view, "preference"};
  add({{{node.left, 1}, {parent.left, -1}}, Relation::Equal, 0, sNearPriority, weight}, origin);
  add({{{node.top, 1}, {parent.top, -1}}, Relation::Equal, 0, sNearPriority, weight}, origin);
}

/// Adds an attribute to the terms; returns what it has besides. Locations count from the corner
/// of the view that holds the constraint, which matters where there is a multiplier; mirrored ones
/// from its right side leftwards.
double LayoutModel::addAttribute(Terms &terms, const Node &node, NSLayoutAttribute attribute,
                                 double factor, const Node &holder, bool mirrored) {
  const auto location = [&](Variable start, Variable size, double share, Variable origin) {
    terms.push_back({start, factor});
    terms.push_back({size, factor * share});
    terms.push_back({origin, -factor});
  };
  const auto across = [&](double share) {
    if (!mirrored) {
      location(node.left, node.width, share, holder.left);
      return;
    }
    terms.push_back({holder.left, factor});
    terms.push_back({holder.width, factor});
    terms.push_back({node.left, -factor});
    terms.push_back({node.width, -factor * (1 - share)});
  };
  switch (attribute) {
    case NSLayoutAttributeLeft:
    case NSLayoutAttributeLeading:
      across(0);
      return 0;
    case NSLayoutAttributeRight:
    case NSLayoutAttributeTrailing:
      across(1);
      return 0;
    case NSLayoutAttributeCenterX:
      across(0.5);
      return 0;
    case NSLayoutAttributeTop:
      location(node.top, node.height, 0, holder.top);
      return 0;
    case NSLayoutAttributeBottom:
      location(node.top, node.height, 1, holder.top);
      return 0;
    case NSLayoutAttributeCenterY:
      location(node.top, node.height, 0.5, holder.top);
      return 0;
    case NSLayoutAttributeLastBaseline:
      location(node.top, node.height, 1, holder.top);
      return -factor * [node.view lastBaselineOffsetFromBottom];
    case NSLayoutAttributeFirstBaseline:
      location(node.top, node.height, 0, holder.top);
      return factor * [node.view firstBaselineOffsetFromTop];
    case NSLayoutAttributeWidth:
      terms.push_back({node.width, factor});
      return 0;
    case NSLayoutAttributeHeight:
      terms.push_back({node.height, factor});
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
