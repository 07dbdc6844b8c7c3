#import <AppKit/AppKit.h>

#include <string>
#include <utility>
#include <variant>

#include "layout/VisualFormat.h"

using namespace platform::layout;

namespace {

// Apple's standard distances: between neighbours, and to the edge of the superview.
constexpr CGFloat sNeighbourGap = 8;
constexpr CGFloat sSuperviewGap = 20;

NSString *StringOf(const std::string &text) { return [NSString stringWithUTF8String:text.c_str()]; }

/// Turns a parsed format into constraints. Names are looked up here.
class Builder {
 public:
  Builder(NSString *format, NSLayoutFormatOptions options, NSDictionary *metrics,
          NSDictionary *views)
      : format_(format), options_(options), metrics_(metrics), views_(views) {}

  NSArray *run(const VisualFormat &format) {
    vertical_ = format.vertical;
    chooseEdges();
    const auto alignments = alignmentsOf();
    const size_t count = format.views.size();
    for (size_t i = 0; i < count; ++i) {
      const VisualView &each = format.views[i];
      NSView *view = viewNamed(each.name, each.position);
      if (i == 0 && format.leading) {
        NSView *superview = superviewOf(view, format.leadingPosition);
        connect(superview, near_, view, near_, *format.leading, sSuperviewGap);
      }
      if (i > 0) {
        NSView *before = viewNamed(format.views[i - 1].name, format.views[i - 1].position);
        connect(before, far_, view, near_, format.between[i - 1], sNeighbourGap);
        for (NSLayoutAttribute attribute : alignments) {
          add(view, attribute, NSLayoutRelationEqual, before, attribute, 0, nullptr);
        }
      }
      for (const VisualPredicate &predicate : each.predicates) {
        size(view, predicate);
      }
      if (i + 1 == count && format.trailing) {
        NSView *superview = superviewOf(view, format.trailingPosition);
        connect(view, far_, superview, far_, *format.trailing, sSuperviewGap);
      }
    }
    return constraints_;
  }

  [[noreturn]] void fail(const VisualFormatError &error) const {
    const char *text = [format_ UTF8String];
    NSString *reason = StringOf(DescribeVisualFormatError(text == nullptr ? "" : text, error));
    @throw [NSException exceptionWithName:NSInvalidArgumentException reason:reason userInfo:nil];
  }

 private:
  void chooseEdges() {
    if (vertical_) {
      near_ = NSLayoutAttributeTop;
      far_ = NSLayoutAttributeBottom;
      return;
    }
    switch (options_ & NSLayoutFormatDirectionMask) {
      case NSLayoutFormatDirectionLeftToRight:
        near_ = NSLayoutAttributeLeft;
        far_ = NSLayoutAttributeRight;
        break;
      case NSLayoutFormatDirectionRightToLeft:
        near_ = NSLayoutAttributeRight;
        far_ = NSLayoutAttributeLeft;
        backwards_ = true;
        break;
      default:
        near_ = NSLayoutAttributeLeading;
        far_ = NSLayoutAttributeTrailing;
    }
  }

  std::vector<NSLayoutAttribute> alignmentsOf() const {
    std::vector<NSLayoutAttribute> found;
    for (NSLayoutAttribute attribute = NSLayoutAttributeLeft;
         attribute <= NSLayoutAttributeFirstBaseline; ++attribute) {
      if ((options_ & NSLayoutFormatAlignmentMask & (1u << attribute)) == 0) {
        continue;
      }
      const bool horizontalEdge =
          attribute == NSLayoutAttributeTop || attribute == NSLayoutAttributeBottom ||
          attribute == NSLayoutAttributeCenterY || attribute == NSLayoutAttributeLastBaseline ||
          attribute == NSLayoutAttributeFirstBaseline;
      if (horizontalEdge == vertical_) {
        const char *edge = vertical_ ? "vertical" : "horizontal";
        fail({std::string("Options mask required views to be aligned on a ") +
                  (vertical_ ? "horizontal" : "vertical") +
                  " edge, which is not allowed for layout that is also " + edge + ".",
              0});
      }
      found.push_back(attribute);
    }
    return found;
  }

  NSView *viewNamed(const std::string &name, size_t position) const {
    NSView *view = [views_ objectForKey:StringOf(name)];
    if (view == nil) {
      fail({name + " is not a key in the views dictionary.", position});
    }
    return view;
  }

  NSView *superviewOf(NSView *view, size_t position) const {
    NSView *superview = [view superview];
    if (superview == nil) {
      fail({"Unable to interpret '|' character, because the related view doesn't have a superview",
            position});
    }
    return superview;
  }

  CGFloat number(const VisualOperand &operand) const {
    if (operand.number) {
      return *operand.number;
    }
    id metric = [metrics_ objectForKey:StringOf(operand.name)];
    if (![metric isKindOfClass:[NSNumber class]]) {
      fail({operand.name + (metric == nil ? " is not a key in the metrics dictionary."
                                          : " is not a number in the metrics dictionary."),
            operand.position});
    }
    return [metric doubleValue];
  }

  /// From the edge of one item to the edge of the next one in reading direction.
  void connect(NSView *from, NSLayoutAttribute fromEdge, NSView *to, NSLayoutAttribute toEdge,
               const VisualConnection &connection, CGFloat standardGap) {
    const auto connectBy = [&](NSLayoutRelation relation, CGFloat gap,
                               const VisualPredicate *predicate) {
      if (backwards_) {
        add(from, fromEdge, relation, to, toEdge, gap, predicate);
      } else {
        add(to, toEdge, relation, from, fromEdge, gap, predicate);
      }
    };
    if (connection.kind != VisualConnection::Kind::kMeasured) {
      const bool flush = connection.kind == VisualConnection::Kind::kFlush;
      connectBy(NSLayoutRelationEqual, flush ? 0 : standardGap, nullptr);
      return;
    }
    for (const VisualPredicate &predicate : connection.predicates) {
      connectBy(static_cast<NSLayoutRelation>(predicate.relation), number(predicate.object),
                &predicate);
    }
  }

  void size(NSView *view, const VisualPredicate &predicate) {
    const NSLayoutAttribute attribute =
        vertical_ ? NSLayoutAttributeHeight : NSLayoutAttributeWidth;
    const auto relation = static_cast<NSLayoutRelation>(predicate.relation);
    const VisualOperand &object = predicate.object;
    // A name may be a metric's or a view's; the metric is asked first.
    if (!object.number && [metrics_ objectForKey:StringOf(object.name)] == nil) {
      NSView *other = [views_ objectForKey:StringOf(object.name)];
      if (other == nil) {
        fail({object.name + " is not a key in the metrics or the views dictionary.",
              object.position});
      }
      add(view, attribute, relation, other, attribute, 0, &predicate);
      return;
    }
    add(view, attribute, relation, nil, NSLayoutAttributeNotAnAttribute, number(object),
        &predicate);
  }

  void add(NSView *first, NSLayoutAttribute firstAttribute, NSLayoutRelation relation,
           NSView *second, NSLayoutAttribute secondAttribute, CGFloat constant,
           const VisualPredicate *predicate) {
    NSLayoutConstraint *constraint = [NSLayoutConstraint constraintWithItem:first
                                                                  attribute:firstAttribute
                                                                  relatedBy:relation
                                                                     toItem:second
                                                                  attribute:secondAttribute
                                                                 multiplier:1
                                                                   constant:constant];
    if (predicate != nullptr && predicate->priority) {
      const CGFloat priority = number(*predicate->priority);
      if (!(priority > 0 && priority <= NSLayoutPriorityRequired)) {
        fail(
            {"Priorities must be greater than 0 and at most 1000.", predicate->priority->position});
      }
      [constraint setPriority:static_cast<NSLayoutPriority>(priority)];
    }
    [constraints_ addObject:constraint];
  }

  NSString *format_;
  NSLayoutFormatOptions options_;
  NSDictionary *metrics_;
  NSDictionary *views_;
  NSMutableArray *constraints_ = [NSMutableArray array];
  bool vertical_ = false;
  bool backwards_ = false;
  NSLayoutAttribute near_ = NSLayoutAttributeLeading;
  NSLayoutAttribute far_ = NSLayoutAttributeTrailing;
};

}  // namespace

@implementation NSLayoutConstraint (VisualFormat)

+ (NSArray *)constraintsWithVisualFormat:(NSString *)format
                                 options:(NSLayoutFormatOptions)options
                                 metrics:(NSDictionary *)metrics
                                   views:(NSDictionary *)views {
  if (format == nil) {
    [NSException raise:NSInvalidArgumentException format:@"The visual format is nil"];
  }
  Builder builder(format, options, metrics, views);
  const auto parsed = ParseVisualFormat([format UTF8String]);
  if (const auto *error = std::get_if<VisualFormatError>(&parsed)) {
    builder.fail(*error);
  }
  return builder.run(std::get<VisualFormat>(parsed));
}

@end
