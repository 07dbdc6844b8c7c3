#import "layout/PlatformLayoutConstraint.h"

#include <algorithm>
#include <cmath>

#import "layout/LayoutEngine.h"
#import "layout/LayoutState.h"

using platform::layout::ExistingState;
using platform::layout::LayoutState;
using platform::layout::StateOf;

namespace {

enum class Kind { kNone, kHorizontal, kVertical, kSize };

Kind KindOf(NSLayoutAttribute attribute) {
  switch (attribute) {
    case NSLayoutAttributeNotAnAttribute:
      return Kind::kNone;
    case NSLayoutAttributeLeft:
    case NSLayoutAttributeRight:
    case NSLayoutAttributeLeading:
    case NSLayoutAttributeTrailing:
    case NSLayoutAttributeCenterX:
      return Kind::kHorizontal;
    case NSLayoutAttributeWidth:
    case NSLayoutAttributeHeight:
      return Kind::kSize;
    default:
      return Kind::kVertical;
  }
}

NSString *NameOf(NSLayoutAttribute attribute) {
  static NSString *const names[] = {@"notAnAttribute", @"left",    @"right",    @"top",
                                    @"bottom",         @"leading", @"trailing", @"width",
                                    @"height",         @"centerX", @"centerY",  @"lastBaseline",
                                    @"firstBaseline"};
  const size_t index = static_cast<size_t>(attribute);
  return index < std::size(names) ? names[index] : @"unknown";
}

NSString *NameOf(NSView *view) {
  return [NSString stringWithFormat:@"%@:%p", NSStringFromClass([view class]), view];
}

NSString *TextOf(NSLayoutRelation relation) {
  return relation == NSLayoutRelationEqual             ? @"=="
         : relation == NSLayoutRelationLessThanOrEqual ? @"<="
                                                       : @">=";
}

void CheckFinite(CGFloat number, const char *what) {
  if (!std::isfinite(number)) {
    [NSException raise:NSInvalidArgumentException
                format:@"NSLayoutConstraint: the %s is not a finite number", what];
  }
}

}  // namespace

@implementation PlatformLayoutConstraint

@synthesize holder = _holder;

- (instancetype)initWithItem:(NSView *)firstItem
                   attribute:(NSLayoutAttribute)firstAttribute
                   relatedBy:(NSLayoutRelation)relation
                      toItem:(NSView *)secondItem
                   attribute:(NSLayoutAttribute)secondAttribute
                  multiplier:(CGFloat)multiplier
                    constant:(CGFloat)constant {
  self = [super init];
  if (self == nil) {
    return nil;
  }
  // Before anything can raise: dealloc has to find a whole object.
  _multiplier = multiplier;
  _constant = constant;
  _relation = relation;
  _firstAttribute = firstAttribute;
  _secondAttribute = secondAttribute;
  _priority = NSLayoutPriorityRequired;
  @try {
    [self checkItem:firstItem andItem:secondItem];
  } @catch (NSException *exception) {
    [self release];
    @throw;
  }
  _firstItem = firstItem;
  _secondItem = secondItem;
  StateOf(firstItem).mentions.push_back(self);
  if (secondItem != nil && secondItem != firstItem) {
    StateOf(secondItem).mentions.push_back(self);
  }
  return self;
}

- (void)checkItem:(id)first andItem:(id)second {
  CheckFinite(_multiplier, "multiplier");
  CheckFinite(_constant, "constant");
  if (![first isKindOfClass:[NSView class]] ||
      (second != nil && ![second isKindOfClass:[NSView class]])) {
    [NSException
         raise:NSInvalidArgumentException
        format:@"NSLayoutConstraint: constraint items must be views, not %@ and %@", first, second];
  }
  const Kind firstKind = KindOf(_firstAttribute);
  const Kind secondKind = KindOf(_secondAttribute);
  if (firstKind == Kind::kNone) {
    [NSException raise:NSInvalidArgumentException
                format:@"NSLayoutConstraint: the first attribute must be one"];
  }
  if (second == nil && secondKind != Kind::kNone) {
    [NSException raise:NSInvalidArgumentException
                format:@"NSLayoutConstraint: a multiplier is not legal here: attribute %@ has no "
                       @"item",
                       NameOf(_secondAttribute)];
  }
  if (second == nil && firstKind != Kind::kSize) {
    [NSException raise:NSInvalidArgumentException
                format:@"NSLayoutConstraint: location attributes must be specified in pairs"];
  }
  if (second != nil && firstKind != secondKind) {
    [NSException raise:NSInvalidArgumentException
                format:@"NSLayoutConstraint: invalid pairing of layout attributes %@ and %@",
                       NameOf(_firstAttribute), NameOf(_secondAttribute)];
  }
}

- (void)dealloc {
  for (NSView *item : {static_cast<NSView *>(_firstItem), static_cast<NSView *>(_secondItem)}) {
    if (LayoutState *state = item == nil ? nullptr : ExistingState(item)) {
      auto &mentions = state->mentions;
      mentions.erase(std::remove(mentions.begin(), mentions.end(), self), mentions.end());
    }
  }
  [_identifier release];
  [super dealloc];
}

- (void)forgetItem:(NSView *)item {
  if (_firstItem == item) {
    _firstItem = nil;
  }
  if (_secondItem == item) {
    _secondItem = nil;
  }
  // Last: it may be the last reference.
  if (_holder != nil && _holder != item) {
    [_holder removeConstraint:self];
  }
}

// GNUstep compares by value, and the same constraint given twice is two constraints.
- (BOOL)isEqual:(id)other {
  return self == other;
}

- (NSUInteger)hash {
  return reinterpret_cast<NSUInteger>(self) >> 4;
}

- (NSString *)identifier {
  return [[_identifier retain] autorelease];
}

- (void)setIdentifier:(NSString *)identifier {
  if (identifier != _identifier) {
    [_identifier release];
    _identifier = [identifier copy];
  }
}

- (void)setConstant:(CGFloat)constant {
  CheckFinite(constant, "constant");
  if (constant != _constant) {
    _constant = constant;
    platform::layout::Invalidate(_holder);
  }
}

- (void)setPriority:(NSLayoutPriority)priority {
  if (!(priority > 0 && priority <= NSLayoutPriorityRequired)) {
    [NSException raise:NSInvalidArgumentException
                format:@"It's illegal to set priority:%g.  Priorities must be greater than 0 and "
                       @"less or equal to NSLayoutPriorityRequired, which is %f.",
                       priority, NSLayoutPriorityRequired];
  }
  if (priority != _priority) {
    _priority = priority;
    platform::layout::Invalidate(_holder);
  }
}

- (BOOL)isActive {
  return _holder != nil;
}

- (void)setActive:(BOOL)active {
  if (active == (_holder != nil)) {
    return;
  }
  if (!active) {
    [_holder removeConstraint:self];
    return;
  }
  NSView *ancestor =
      _secondItem == nil ? _firstItem : [_firstItem ancestorSharedWithView:_secondItem];
  if (ancestor == nil) {
    [NSException raise:NSGenericException
                format:@"Unable to activate constraint %@ because its items have no common "
                       @"ancestor.  Does the constraint reference items in different view "
                       @"hierarchies?  That's illegal.",
                       self];
  }
  [ancestor addConstraint:self];
}

- (NSString *)description {
  NSMutableString *text = [NSMutableString stringWithFormat:@"<NSLayoutConstraint:%p ", self];
  if (_identifier != nil) {
    [text appendFormat:@"'%@' ", _identifier];
  }
  [text appendString:[self equation]];
  if (_priority < NSLayoutPriorityRequired) {
    [text appendFormat:@" @%g", _priority];
  }
  [text appendString:_holder == nil ? @"   (inactive)>" : @"   (active)>"];
  return text;
}

- (NSString *)equation {
  const bool vertical =
      KindOf(_firstAttribute) == Kind::kVertical || _firstAttribute == NSLayoutAttributeHeight;
  NSString *axis = vertical ? @"V" : @"H";
  NSString *relation = _relation == NSLayoutRelationEqual ? @"" : TextOf(_relation);
  if (_secondItem == nil && KindOf(_firstAttribute) == Kind::kSize) {
    return
        [NSString stringWithFormat:@"%@:[%@(%@%g)]", axis, NameOf(_firstItem), relation, _constant];
  }
  NSString *gap = _constant == 0 && _relation == NSLayoutRelationEqual
                      ? @""
                      : [NSString stringWithFormat:@"-(%@%g)-", relation, _constant];
  const bool atStart =
      _firstAttribute == _secondAttribute &&
      (_firstAttribute == NSLayoutAttributeLeading || _firstAttribute == NSLayoutAttributeLeft ||
       _firstAttribute == NSLayoutAttributeTop);
  const bool atEnd =
      _firstAttribute == _secondAttribute &&
      (_firstAttribute == NSLayoutAttributeTrailing || _firstAttribute == NSLayoutAttributeRight ||
       _firstAttribute == NSLayoutAttributeBottom);
  const bool between =
      (_firstAttribute == NSLayoutAttributeLeading &&
       _secondAttribute == NSLayoutAttributeTrailing) ||
      (_firstAttribute == NSLayoutAttributeLeft && _secondAttribute == NSLayoutAttributeRight) ||
      (_firstAttribute == NSLayoutAttributeTop && _secondAttribute == NSLayoutAttributeBottom);
  if (_multiplier == 1 && atStart && [_firstItem superview] == _secondItem) {
    return [NSString stringWithFormat:@"%@:|%@[%@]   (names: '|':%@)", axis, gap,
                                      NameOf(_firstItem), NameOf(_secondItem)];
  }
  if (_multiplier == 1 && atEnd && [_secondItem superview] == _firstItem) {
    return [NSString stringWithFormat:@"%@:[%@]%@|   (names: '|':%@)", axis, NameOf(_secondItem),
                                      gap, NameOf(_firstItem)];
  }
  if (_multiplier == 1 && between) {
    return [NSString
        stringWithFormat:@"%@:[%@]%@[%@]", axis, NameOf(_secondItem), gap, NameOf(_firstItem)];
  }
  NSMutableString *text =
      [NSMutableString stringWithFormat:@"%@.%@ %@ ", NameOf(_firstItem), NameOf(_firstAttribute),
                                        TextOf(_relation)];
  if (_multiplier != 1) {
    [text appendFormat:@"%g*", _multiplier];
  }
  [text appendFormat:@"%@.%@", NameOf(_secondItem), NameOf(_secondAttribute)];
  if (_constant != 0) {
    [text appendFormat:@" %c %g", _constant < 0 ? '-' : '+', std::fabs(_constant)];
  }
  return text;
}

@end

/// Puts this class in the place of GNUstep's.
@implementation NSLayoutConstraint (Platform)

+ (instancetype)allocWithZone:(NSZone *)zone {
  Class wanted = self == [NSLayoutConstraint class] ? [PlatformLayoutConstraint class] : self;
  return NSAllocateObject(wanted, 0, zone);
}

+ (instancetype)constraintWithItem:(id)firstItem
                         attribute:(NSLayoutAttribute)firstAttribute
                         relatedBy:(NSLayoutRelation)relation
                            toItem:(id)secondItem
                         attribute:(NSLayoutAttribute)secondAttribute
                        multiplier:(CGFloat)multiplier
                          constant:(CGFloat)constant {
  return [[[PlatformLayoutConstraint alloc] initWithItem:firstItem
                                               attribute:firstAttribute
                                               relatedBy:relation
                                                  toItem:secondItem
                                               attribute:secondAttribute
                                              multiplier:multiplier
                                                constant:constant] autorelease];
}

+ (void)activateConstraints:(NSArray *)constraints {
  for (NSLayoutConstraint *constraint in constraints) {
    [constraint setActive:YES];
  }
}

+ (void)deactivateConstraints:(NSArray *)constraints {
  for (NSLayoutConstraint *constraint in constraints) {
    [constraint setActive:NO];
  }
}

@end
