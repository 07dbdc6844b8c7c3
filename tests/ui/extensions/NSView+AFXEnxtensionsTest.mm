#include <gtest/gtest.h>

#include "method_swap.h"
#import "ui/extensions/NSView+AFXEnxtensions.h"

namespace {

NSView *MakeView() {
  NSView *view = [[[NSView alloc] initWithFrame:NSMakeRect(0, 0, 100, 100)] autorelease];
  view.translatesAutoresizingMaskIntoConstraints = NO;
  return view;
}

}  // namespace

TEST(CenterXConstraint, IsAddedForDirectSubviewsOnly) {
  NSView *container = MakeView();
  NSView *child = MakeView();
  NSView *grandchild = MakeView();
  NSView *stranger = MakeView();
  [container addSubview:child];
  [child addSubview:grandchild];

  [container addCenterXContraintForSubviews:@[ child, grandchild, stranger ]];

  ASSERT_EQ(container.constraints.count, 1u);
  NSLayoutConstraint *constraint = [container.constraints objectAtIndex:0];
  EXPECT_EQ(constraint.firstItem, child);
  EXPECT_EQ(constraint.secondItem, container);
  EXPECT_EQ(constraint.firstAttribute, NSLayoutAttributeCenterX);
  EXPECT_EQ(constraint.secondAttribute, NSLayoutAttributeCenterX);
  EXPECT_EQ(constraint.relation, NSLayoutRelationEqual);
  EXPECT_EQ(constraint.multiplier, 1.0);
  EXPECT_EQ(constraint.constant, 0.0);
  EXPECT_EQ(constraint.priority, NSLayoutPriorityRequired);
  EXPECT_EQ(child.constraints.count, 0u);
}

TEST(CenterXConstraint, IsAddedInTheOrderOfTheViews) {
  NSView *container = MakeView();
  NSArray *children = @[ MakeView(), MakeView(), MakeView() ];
  for (NSView *child in children) {
    [container addSubview:child];
  }
  [container addCenterXContraintForSubviews:children.reverseObjectEnumerator];
  ASSERT_EQ(container.constraints.count, 3u);
  for (NSUInteger i = 0; i < 3; ++i) {
    EXPECT_EQ([[container.constraints objectAtIndex:i] firstItem], [children objectAtIndex:2 - i]);
  }
}

TEST(CenterXConstraint, IsNotMergedForAViewListedTwice) {
  NSView *container = MakeView();
  NSView *child = MakeView();
  [container addSubview:child];
  [container addCenterXContraintForSubviews:@[ child, child ]];
  EXPECT_EQ(container.constraints.count, 2u);
}

TEST(CenterXConstraint, TakesAnyCollection) {
  NSView *container = MakeView();
  NSView *child = MakeView();
  [container addSubview:child];
  [container addCenterXContraintForSubviews:[NSSet setWithObject:child]];
  EXPECT_EQ(container.constraints.count, 1u);
  [container addCenterXContraintForSubviews:@[]];
  EXPECT_EQ(container.constraints.count, 1u);
}

TEST(VisualFormatConstraints, NeedNoMetricsForLiteralNumbers) {
  NSView *container = MakeView();
  NSView *child = MakeView();
  [container addSubview:child];
  [container addVisualFormatConstraints:@"H:|[close(0.0)]" views:@{@"close" : child} metrics:nil];
  EXPECT_EQ(container.constraints.count, 2u);
}

namespace {

int sAsked;

NSArray *Constraints(id, SEL, NSString *format, NSLayoutFormatOptions options,
                     NSDictionary *metrics, NSDictionary *views) {
  ++sAsked;
  EXPECT_TRUE([format isEqualToString:@"H:|-(d)-[child]"]);
  EXPECT_EQ(options, 0u);
  EXPECT_TRUE([metrics isEqualToDictionary:@{@"d" : @8}]);
  NSView *child = [views objectForKey:@"child"];
  const auto make = [&](NSLayoutAttribute attribute) {
    return [NSLayoutConstraint constraintWithItem:child
                                        attribute:attribute
                                        relatedBy:NSLayoutRelationEqual
                                           toItem:nil
                                        attribute:NSLayoutAttributeNotAnAttribute
                                       multiplier:1.0
                                         constant:7.0];
  };
  return @[ make(NSLayoutAttributeWidth), make(NSLayoutAttributeHeight) ];
}

}  // namespace

TEST(VisualFormatConstraints, AreThoseThatTheToolkitMakesWithoutOptions) {
  MethodSwap swap(class_getClassMethod(NSLayoutConstraint.class, @selector
                                       (constraintsWithVisualFormat:options:metrics:views:)),
                  Constraints);
  NSView *container = MakeView();
  NSView *child = MakeView();
  [container addSubview:child];
  sAsked = 0;
  [container addVisualFormatConstraints:@"H:|-(d)-[child]"
                                  views:@{@"child" : child}
                                metrics:@{
                                  @"d" : @8
                                }];
  EXPECT_EQ(sAsked, 1);
  ASSERT_EQ(container.constraints.count, 2u);
  EXPECT_EQ([[container.constraints objectAtIndex:0] firstAttribute], NSLayoutAttributeWidth);
  EXPECT_EQ([[container.constraints objectAtIndex:1] firstAttribute], NSLayoutAttributeHeight);
}

TEST(VisualFormatConstraints, LeaveTheTranslationOfTheMaskAlone) {
  NSView *container = MakeView();
  NSView *child = [[[NSView alloc] initWithFrame:NSZeroRect] autorelease];
  [container addSubview:child];
  [container addVisualFormatConstraints:@"H:|[child(10)]" views:@{@"child" : child} metrics:nil];
  EXPECT_TRUE(child.translatesAutoresizingMaskIntoConstraints);
}

TEST(VisualFormatConstraints, LetTheToolkitsOwnExceptionThrough) {
  NSView *container = MakeView();
  BOOL raised = NO;
  @try {
    [container addVisualFormatConstraints:@"H:|-[" views:@{} metrics:nil];
  } @catch (NSException *exception) {
    raised = [exception.name isEqualToString:NSInvalidArgumentException];
  }
  EXPECT_TRUE(raised);
  EXPECT_EQ(container.constraints.count, 0u);
}
