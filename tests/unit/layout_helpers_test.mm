#include <gtest/gtest.h>

#import "ui/extensions/NSView+AFXEnxtensions.h"

namespace {

NSView *makeView() {
  NSView *view = [[[NSView alloc] initWithFrame:NSMakeRect(0, 0, 100, 100)] autorelease];
  view.translatesAutoresizingMaskIntoConstraints = NO;
  return view;
}

}  // namespace

TEST(CenterXConstraint, IsAddedForDirectSubviewsOnly) {
  NSView *container = makeView();
  NSView *child = makeView();
  NSView *grandchild = makeView();
  NSView *stranger = makeView();
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

TEST(CenterXConstraint, IsNotMergedForAViewListedTwice) {
  NSView *container = makeView();
  NSView *child = makeView();
  [container addSubview:child];
  [container addCenterXContraintForSubviews:@[ child, child ]];
  EXPECT_EQ(container.constraints.count, 2u);
}

TEST(CenterXConstraint, TakesAnyCollection) {
  NSView *container = makeView();
  NSView *child = makeView();
  [container addSubview:child];
  [container addCenterXContraintForSubviews:[NSSet setWithObject:child]];
  EXPECT_EQ(container.constraints.count, 1u);
  [container addCenterXContraintForSubviews:@[]];
  EXPECT_EQ(container.constraints.count, 1u);
}

TEST(VisualFormatConstraints, NeedNoMetricsForLiteralNumbers) {
  NSView *container = makeView();
  NSView *child = makeView();
  [container addSubview:child];
  [container addVisualFormatConstraints:@"H:|[close(0.0)]" views:@{@"close" : child} metrics:nil];
  EXPECT_EQ(container.constraints.count, 2u);
}

TEST(VisualFormatConstraints, LeaveTheTranslationOfTheMaskAlone) {
  NSView *container = makeView();
  NSView *child = [[[NSView alloc] initWithFrame:NSZeroRect] autorelease];
  [container addSubview:child];
  [container addVisualFormatConstraints:@"H:|[child(10)]" views:@{@"child" : child} metrics:nil];
  EXPECT_TRUE(child.translatesAutoresizingMaskIntoConstraints);
}

TEST(VisualFormatConstraints, LetTheToolkitsOwnExceptionThrough) {
  NSView *container = makeView();
  BOOL raised = NO;
  @try {
    [container addVisualFormatConstraints:@"H:|-[" views:@{} metrics:nil];
  } @catch (NSException *exception) {
    raised = [exception.name isEqualToString:NSInvalidArgumentException];
  }
  EXPECT_TRUE(raised);
  EXPECT_EQ(container.constraints.count, 0u);
}
