#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#import "layout/LayoutState.h"

namespace {

NSDictionary *Entry(NSString *name, id value) {
  return [NSDictionary dictionaryWithObject:value forKey:name];
}

NSArray *Visual(NSString *format, NSDictionary *views, NSDictionary *metrics = nil,
                NSLayoutFormatOptions options = 0) {
  return [NSLayoutConstraint constraintsWithVisualFormat:format
                                                 options:options
                                                 metrics:metrics
                                                   views:views];
}

NSLayoutConstraint *Relate(NSView *first, NSLayoutAttribute firstAttribute,
                           NSLayoutRelation relation, NSView *second,
                           NSLayoutAttribute secondAttribute, CGFloat multiplier = 1,
                           CGFloat constant = 0) {
  return [NSLayoutConstraint constraintWithItem:first
                                      attribute:firstAttribute
                                      relatedBy:relation
                                         toItem:second
                                      attribute:secondAttribute
                                     multiplier:multiplier
                                       constant:constant];
}

NSView *AddedView(NSView *superview, Class type = [NSView class]) {
  NSView *view = [[[type alloc] initWithFrame:NSZeroRect] autorelease];
  [view setTranslatesAutoresizingMaskIntoConstraints:NO];
  [superview addSubview:view];
  return view;
}

NSTextField *AddedLabel(NSView *superview, NSString *text, CGFloat size) {
  NSTextField *field = static_cast<NSTextField *>(AddedView(superview, [NSTextField class]));
  [field setEditable:NO];
  [field setBordered:NO];
  [field setBezeled:NO];
  [field setDrawsBackground:NO];
  [[field cell] setLineBreakMode:NSLineBreakByWordWrapping];
  [[field cell] setUsesSingleLineMode:NO];
  [field setAlignment:NSCenterTextAlignment];
  [field setFont:[NSFont systemFontOfSize:size]];
  [field setStringValue:text];
  [field sizeToFit];
  return field;
}

NSButton *AddedPushButton(NSView *superview, NSString *title) {
  NSButton *button = static_cast<NSButton *>(AddedView(superview, [NSButton class]));
  [button setBezelStyle:NSRoundedBezelStyle];
  [button setFont:[NSFont systemFontOfSize:13]];
  [button setTitle:title];
  return button;
}

/// What constraints place of the view.
NSRect Aligned(NSView *view) { return [view alignmentRectForFrame:[view frame]]; }

/// The same, seen from the top left corner of an unflipped superview.
NSRect FromTop(NSView *view) {
  NSRect rect = Aligned(view);
  rect.origin.y = NSHeight([[view superview] bounds]) - NSMaxY(rect);
  return rect;
}

void ExpectPlace(NSView *view, CGFloat x, CGFloat top, CGFloat width, CGFloat height) {
  const NSRect rect = FromTop(view);
  EXPECT_EQ(NSMinX(rect), x);
  EXPECT_EQ(NSMinY(rect), top);
  EXPECT_EQ(NSWidth(rect), width);
  EXPECT_EQ(NSHeight(rect), height);
}

std::string ReasonOf(void (^block)(void), NSString *name) {
  @try {
    block();
  } @catch (NSException *exception) {
    EXPECT_TRUE([[exception name] isEqualToString:name]) << [[exception name] UTF8String];
    return [[exception reason] UTF8String];
  }
  ADD_FAILURE() << "nothing was raised";
  return {};
}

class Layout : public testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    window_ = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 556, 355)
                                          styleMask:NSBorderlessWindowMask
                                            backing:NSBackingStoreBuffered
                                              defer:NO];
    [window_ setReleasedWhenClosed:NO];
    content_ = [window_ contentView];
  }

  void TearDown() override {
    [window_ orderOut:nil];
    [window_ release];
    [pool_ release];
  }

  /// Runs the main run loop until a condition holds, for at most five seconds.
  static bool turnUntil(bool (^condition)(void)) {
    NSDate *end = [NSDate dateWithTimeIntervalSinceNow:5];
    while (!condition() && [end timeIntervalSinceNow] > 0) {
      [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                               beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.02]];
    }
    return condition();
  }

  void add(NSString *format, NSDictionary *views, NSDictionary *metrics = nil) {
    [content_ addConstraints:Visual(format, views, metrics)];
  }

  NSAutoreleasePool *pool_;
  NSWindow *window_;
  NSView *content_;
};

/// A consent question: pictures over texts, two buttons around a spacer, a footer.
class Question : public Layout {
 protected:
  void build(NSString *description) {
    envelope_ = [[[NSImageView alloc] initWithFrame:NSMakeRect(0, 0, 214, 149)] autorelease];
    icon_ = [[[NSImageView alloc] initWithFrame:NSMakeRect(0, 0, 110, 110)] autorelease];
    images_ = [[[NSView alloc] initWithFrame:NSMakeRect(0, 0, 232, 148)] autorelease];
    for (NSImageView *view in [NSArray arrayWithObjects:envelope_, icon_, nil]) {
      [view setTranslatesAutoresizingMaskIntoConstraints:NO];
      [images_ addSubview:view];
    }
    NSDictionary *envelope = Entry(@"envelope", envelope_);
    NSDictionary *icon = Entry(@"icon", icon_);
    [images_ addConstraints:Visual(@"H:[envelope(width)]|", envelope, Entry(@"width", @214))];
    [images_ addConstraints:Visual(@"V:|[envelope(height)]", envelope, Entry(@"height", @149))];
    [images_ addConstraints:Visual(@"H:|[icon(width)]", icon, Entry(@"width", @110))];
    [images_ addConstraints:Visual(@"V:[icon(height)]|", icon, Entry(@"height", @110))];
    [images_ setTranslatesAutoresizingMaskIntoConstraints:NO];
    [content_ addSubview:images_];

    title_ = AddedLabel(content_, @"Let’s stay in touch!", 32);
    description_ = AddedLabel(content_, description, 14);
    info_ = AddedLabel(content_, @"Your address will be shared with the developers.", 11);
    invisible_ = static_cast<NSButton *>(AddedView(content_, [NSButton class]));
    close_ = [[[NSButton alloc] initWithFrame:NSMakeRect(0, 0, 12, 12)] autorelease];
    [close_ setBordered:NO];
    [close_ setImage:[[[NSImage alloc] initWithSize:NSMakeSize(12, 12)] autorelease]];
    [close_ setTranslatesAutoresizingMaskIntoConstraints:NO];
    [content_ addSubview:close_];
    cancel_ = AddedPushButton(content_, @"No, Thanks");
    ok_ = AddedPushButton(content_, @"Sure, I’m In");
    spacer_ = AddedView(content_);

    add(@"H:|-(10.0)-[close(width)]", Entry(@"close", close_), Entry(@"width", @12));
    add(@"V:|-(8.0)-[close(height)]", Entry(@"close", close_), Entry(@"height", @12));
    add(@"H:|[close(0.0)]", Entry(@"close", invisible_));
    add(@"V:|[close(0.0)]", Entry(@"close", invisible_));
    add(@"H:[icon(width)]", Entry(@"icon", images_), Entry(@"width", @232));
    NSArray *centred =
        [NSArray arrayWithObjects:images_, title_, description_, info_, spacer_, nil];
    for (NSView *view in centred) {
      [content_ addConstraint:Relate(view, NSLayoutAttributeCenterX, NSLayoutRelationEqual,
                                     content_, NSLayoutAttributeCenterX)];
    }
    add(@"V:|-(35.0)-[icon(i_height)]-(13.0)-[title]-(6.0)-[description][buttons(64.0@251)]-(2.0)-"
        @"[info]-(>=8.0)-|",
        [NSDictionary dictionaryWithObjectsAndKeys:images_, @"icon", title_, @"title", description_,
                                                   @"description", spacer_, @"buttons", info_,
                                                   @"info", nil],
        Entry(@"i_height", @148));
    add(@"H:|-(d)-[title]-(d)-|", Entry(@"title", title_), Entry(@"d", @8.0));
    add(@"H:|-(d)-[text]-(d)-|", Entry(@"text", description_), Entry(@"d", @8.0));
    add(@"H:|-(d)-[info]-(d)-|", Entry(@"info", info_), Entry(@"d", @8.0));
    [description_ setPreferredMaxLayoutWidth:540];
    add(@"H:|-(8.0)-[info]-(8.0)-|", Entry(@"info", info_));
    add(@"H:[cancel(>=110.0)]-(6.0)-[center(1.0)]-(6.0)-[ok(cancel)]",
        [NSDictionary
            dictionaryWithObjectsAndKeys:cancel_, @"cancel", spacer_, @"center", ok_, @"ok", nil]);
    for (NSView *button in [NSArray arrayWithObjects:cancel_, ok_, nil]) {
      [content_ addConstraint:Relate(button, NSLayoutAttributeCenterY, NSLayoutRelationEqual,
                                     spacer_, NSLayoutAttributeCenterY)];
    }
  }

  static CGFloat lineHeight(NSTextField *field) {
    return std::ceil([[[field cell] attributedStringValue] size].height);
  }

  NSImageView *envelope_, *icon_;
  NSView *images_, *spacer_;
  NSTextField *title_, *description_, *info_;
  NSButton *invisible_, *close_, *cancel_, *ok_;
};

TEST_F(Question, StandsAsWorkedOutByHand) {
  build(@"Somebody invites you to receive news.");
  testing::internal::CaptureStderr();
  [window_ layoutIfNeeded];
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

  ExpectPlace(close_, 10, 8, 12, 12);
  ExpectPlace(invisible_, 0, 0, 0, 0);
  ExpectPlace(images_, 162, 35, 232, 148);  // (556 − 232) / 2
  ExpectPlace(envelope_, 18, 0, 214, 149);  // Hangs one point out of the bottom.
  ExpectPlace(icon_, 0, 38, 110, 110);

  const CGFloat title = lineHeight(title_);
  const CGFloat description = lineHeight(description_);
  const CGFloat info = lineHeight(info_);
  CGFloat top = 35 + 148 + 13;
  ExpectPlace(title_, 8, top, 540, title);
  top += title + 6;
  ExpectPlace(description_, 8, top, 540, description);
  top += description;
  // A point wide and centred at 278: its edges lie at halves and are rounded up alike.
  ExpectPlace(spacer_, 278, top, 1, 64);
  const CGFloat middle = top + 32;
  top += 64 + 2;
  ExpectPlace(info_, 8, top, 540, info);
  EXPECT_LE(top + info, 355 - 8);

  const CGFloat width =
      std::max({110.0, [cancel_ intrinsicContentSize].width, [ok_ intrinsicContentSize].width});
  const CGFloat height = [ok_ intrinsicContentSize].height;
  EXPECT_GE(height, 20);
  EXPECT_LE(height, 22);
  const CGFloat buttonTop = std::floor(middle - height / 2 + 0.5);
  ExpectPlace(cancel_, 278 - 6 - width, buttonTop, width, height);
  ExpectPlace(ok_, 279 + 6, buttonTop, width, height);
}

TEST_F(Question, AWrappedDescriptionSqueezesTheSpacer) {
  NSMutableString *text = [NSMutableString string];
  for (int i = 0; i < 6; ++i) {
    [text appendString:@"A very long name of an application "];
  }
  build(text);
  [window_ layoutIfNeeded];
  const NSRect description = FromTop(description_);
  EXPECT_EQ(NSMinX(description), 8);
  EXPECT_EQ(NSWidth(description), 540);
  EXPECT_GE(NSHeight(description), 3 * lineHeight(info_));
  EXPECT_LT(NSHeight(FromTop(spacer_)), 64);
  EXPECT_EQ(NSMinY(FromTop(spacer_)), NSMaxY(description));
  EXPECT_EQ(NSMinY(FromTop(info_)), NSMaxY(FromTop(spacer_)) + 2);
  EXPECT_EQ(NSMaxY(FromTop(info_)), 355 - 8);
  EXPECT_TRUE(NSEqualSizes([window_ frame].size, NSMakeSize(556, 355)));
}

TEST_F(Question, ADescriptionThatTheSpacerLeavesNoRoomMakesTheWindowTaller) {
  NSMutableString *text = [NSMutableString string];
  for (int i = 0; i < 40; ++i) {
    [text appendString:@"A very long name of an application "];
  }
  build(text);
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSHeight(FromTop(spacer_)), 0);
  EXPECT_EQ(NSHeight(FromTop(description_)), [description_ intrinsicContentSize].height);
  EXPECT_GT(NSHeight([window_ frame]), 355);
  EXPECT_EQ(NSMaxY(FromTop(info_)), NSHeight([window_ frame]) - 8);
  EXPECT_EQ(NSWidth([window_ frame]), 556);
}

TEST_F(Question, TheSpacerKeepsItsHeightAsLongAsThereIsRoom) {
  build(@"short");
  [window_ setContentSize:NSMakeSize(556, 600)];
  [description_ setStringValue:@"one\ntwo\nthree\nfour\nfive"];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSHeight([spacer_ frame]), 64);
}

TEST_F(Question, ButtonsStayEquallyWideWhateverTheirTitles) {
  build(@"short");
  [ok_ setTitle:@"A title that is a good deal longer than the other"];
  [window_ layoutIfNeeded];
  const CGFloat width = [ok_ intrinsicContentSize].width;
  EXPECT_GT(width, 110);
  EXPECT_EQ(NSWidth(Aligned(ok_)), width);
  EXPECT_EQ(NSWidth(Aligned(cancel_)), width);
}

TEST_F(Question, IsLaidOutBeforeTheWindowIsOrderedIn) {
  build(@"short");
  [window_ orderFront:nil];
  ExpectPlace(images_, 162, 35, 232, 148);
}

TEST_F(Question, AChangedTextIsLaidOutInTheNextRunLoopIteration) {
  build(@"short");
  [window_ orderFront:nil];
  const CGFloat before = NSHeight([description_ frame]);
  [description_ setStringValue:@"one\ntwo\nthree"];
  EXPECT_EQ(NSHeight([description_ frame]), before);
  EXPECT_TRUE(turnUntil(^bool {
    return NSHeight([description_ frame]) > 2 * before;
  }));
}

TEST_F(Question, AskingForTheFittingSizeDoesNotHideAChange) {
  build(@"short");
  [window_ layoutIfNeeded];
  const CGFloat before = NSHeight([description_ frame]);
  [description_ setStringValue:@"one\ntwo\nthree"];
  EXPECT_GT([content_ fittingSize].height, 0);
  [window_ layoutIfNeeded];
  EXPECT_GT(NSHeight([description_ frame]), 2 * before);
}

TEST_F(Question, AChangedFontIsLaidOutInTheNextRunLoopIteration) {
  build(@"short");
  [window_ orderFront:nil];
  const CGFloat before = NSHeight([title_ frame]);
  [title_ setFont:[NSFont systemFontOfSize:12]];
  EXPECT_TRUE(turnUntil(^bool {
    return NSHeight([title_ frame]) < before;
  }));
}

TEST_F(Question, FollowsTheSizeOfTheWindow) {
  build(@"short");
  [window_ orderFront:nil];
  [window_ setContentSize:NSMakeSize(600, 400)];
  EXPECT_TRUE(turnUntil(^bool {
    return NSWidth([content_ frame]) == 600 && NSMinX([images_ frame]) == 184;
  }));
  ExpectPlace(title_, 8, 196, 584, lineHeight(title_));
}

TEST_F(Question, FramesAreTheSameEveryTime) {
  build(@"short");
  [window_ layoutIfNeeded];
  NSMutableArray *first = [NSMutableArray array];
  for (NSView *view in [content_ subviews]) {
    [first addObject:NSStringFromRect([view frame])];
  }
  for (int i = 0; i < 5; ++i) {
    [content_ setNeedsLayout:YES];
    [window_ layoutIfNeeded];
    NSUInteger index = 0;
    for (NSView *view in [content_ subviews]) {
      EXPECT_TRUE([NSStringFromRect([view frame]) isEqualToString:[first objectAtIndex:index++]]);
    }
  }
}

TEST_F(Layout, TheVisualFormatGivesApplesConstraints) {
  NSView *a = AddedView(content_);
  NSView *b = AddedView(content_);
  NSDictionary *views = [NSDictionary dictionaryWithObjectsAndKeys:a, @"a", b, @"b", nil];
  NSArray *made = Visual(@"H:|-[a(>=m@20)]-[b(==a)]-(-4)-|", views, Entry(@"m", @-3));
  ASSERT_EQ([made count], 5u);
  NSLayoutConstraint *leading = [made objectAtIndex:0];
  EXPECT_EQ([leading firstItem], a);
  EXPECT_EQ([leading firstAttribute], NSLayoutAttributeLeading);
  EXPECT_EQ([leading secondItem], content_);
  EXPECT_EQ([leading secondAttribute], NSLayoutAttributeLeading);
  EXPECT_EQ([leading constant], 20);
  EXPECT_EQ([leading priority], 1000);
  NSLayoutConstraint *width = [made objectAtIndex:1];
  EXPECT_EQ([width firstAttribute], NSLayoutAttributeWidth);
  EXPECT_EQ([width relation], NSLayoutRelationGreaterThanOrEqual);
  EXPECT_EQ([width secondItem], nil);
  EXPECT_EQ([width constant], -3);
  EXPECT_EQ([width priority], 20);
  NSLayoutConstraint *gap = [made objectAtIndex:2];
  EXPECT_EQ([gap firstItem], b);
  EXPECT_EQ([gap secondItem], a);
  EXPECT_EQ([gap secondAttribute], NSLayoutAttributeTrailing);
  EXPECT_EQ([gap constant], 8);
  NSLayoutConstraint *equal = [made objectAtIndex:3];
  EXPECT_EQ([equal firstItem], b);
  EXPECT_EQ([equal secondItem], a);
  EXPECT_EQ([equal multiplier], 1);
  NSLayoutConstraint *trailing = [made objectAtIndex:4];
  EXPECT_EQ([trailing firstItem], content_);
  EXPECT_EQ([trailing secondItem], b);
  EXPECT_EQ([trailing constant], -4);
}

TEST_F(Layout, OptionsAlignNeighbours) {
  NSView *a = AddedView(content_);
  NSView *b = AddedView(content_);
  NSDictionary *views = [NSDictionary dictionaryWithObjectsAndKeys:a, @"a", b, @"b", nil];
  [content_
      addConstraints:Visual(@"H:|-5-[a(20)]-[b(30)]", views, nil, NSLayoutFormatAlignAllBottom)];
  add(@"V:|-7-[a(40)]", views);
  add(@"V:[b(10)]", views);
  [window_ layoutIfNeeded];
  ExpectPlace(a, 5, 7, 20, 40);
  ExpectPlace(b, 33, 37, 30, 10);
}

TEST_F(Layout, OptionsTurnTheDirectionRound) {
  NSView *a = AddedView(content_);
  NSView *b = AddedView(content_);
  NSDictionary *views = [NSDictionary dictionaryWithObjectsAndKeys:a, @"a", b, @"b", nil];
  [content_ addConstraints:Visual(@"H:|-5-[a(20)]-(>=9)-[b(30)]", views, nil,
                                  NSLayoutFormatDirectionRightToLeft)];
  add(@"V:|[a(1)]", views);
  add(@"V:|[b(1)]", views);
  [content_ addConstraint:Relate(b, NSLayoutAttributeRight, NSLayoutRelationEqual, content_,
                                 NSLayoutAttributeRight, 1, -40)];
  [window_ layoutIfNeeded];
  ExpectPlace(a, 531, 0, 20, 1);
  ExpectPlace(b, 486, 0, 30, 1);
}

TEST_F(Layout, BadFormatsRaise) {
  NSView *a = AddedView(content_);
  NSView *alone = [[[NSView alloc] initWithFrame:NSZeroRect] autorelease];
  NSDictionary *views = Entry(@"a", a);
  const auto reason = [&](NSString *format, NSDictionary *named,
                          NSLayoutFormatOptions options = 0) {
    return ReasonOf(
        ^{
          Visual(format, named, nil, options);
        },
        NSInvalidArgumentException);
  };
  EXPECT_EQ(reason(@"H:|-[", views),
            "Unable to parse constraint format: \nExpected the name of a view \nH:|-[ \n     ^");
  EXPECT_EQ(reason(@"H:[b]", views),
            "Unable to parse constraint format: \nb is not a key in the views dictionary. \n"
            "H:[b] \n   ^");
  EXPECT_NE(reason(@"[a(w)]", views).find("w is not a key in the metrics or the views"),
            std::string::npos);
  EXPECT_NE(reason(@"[a]-w-|", views).find("w is not a key in the metrics"), std::string::npos);
  EXPECT_NE(reason(@"[a(4@1001)]", views).find("Priorities"), std::string::npos);
  EXPECT_NE(reason(@"|[a]", Entry(@"a", alone)).find("doesn't have a superview"),
            std::string::npos);
  EXPECT_NE(reason(@"H:[a]", views, NSLayoutFormatAlignAllLeft).find("Options mask"),
            std::string::npos);
  EXPECT_NE(reason(nil, views).find("nil"), std::string::npos);
}

TEST_F(Layout, IllFormedConstraintsRaise) {
  NSView *a = AddedView(content_);
  const auto raises = [](void (^block)(void)) {
    EXPECT_FALSE(ReasonOf(block, NSInvalidArgumentException).empty());
  };
  raises(^{
    Relate(a, NSLayoutAttributeLeft, NSLayoutRelationEqual, content_, NSLayoutAttributeTop);
  });
  raises(^{
    Relate(a, NSLayoutAttributeLeft, NSLayoutRelationEqual, nil, NSLayoutAttributeNotAnAttribute);
  });
  raises(^{
    Relate(a, NSLayoutAttributeNotAnAttribute, NSLayoutRelationEqual, content_,
           NSLayoutAttributeTop);
  });
  raises(^{
    Relate(nil, NSLayoutAttributeWidth, NSLayoutRelationEqual, nil,
           NSLayoutAttributeNotAnAttribute);
  });
  raises(^{
    Relate(a, NSLayoutAttributeWidth, NSLayoutRelationEqual, nil, NSLayoutAttributeNotAnAttribute,
           1, NAN);
  });
  raises(^{
    [Relate(a, NSLayoutAttributeWidth, NSLayoutRelationEqual, nil, NSLayoutAttributeNotAnAttribute)
        setPriority:0];
  });
}

TEST_F(Layout, ActivatingAddsToTheNearestCommonAncestor) {
  NSView *box = AddedView(content_);
  NSView *a = AddedView(box);
  NSView *b = AddedView(box);
  NSLayoutConstraint *gap =
      Relate(b, NSLayoutAttributeLeft, NSLayoutRelationEqual, a, NSLayoutAttributeRight);
  NSLayoutConstraint *width = Relate(a, NSLayoutAttributeWidth, NSLayoutRelationEqual, nil,
                                     NSLayoutAttributeNotAnAttribute, 1, 5);
  NSLayoutConstraint *outer =
      Relate(a, NSLayoutAttributeLeft, NSLayoutRelationEqual, content_, NSLayoutAttributeLeft);
  EXPECT_FALSE([gap isActive]);
  [NSLayoutConstraint activateConstraints:[NSArray arrayWithObjects:gap, width, outer, nil]];
  EXPECT_TRUE([gap isActive]);
  EXPECT_EQ([[box constraints] objectAtIndex:0], gap);
  EXPECT_EQ([[a constraints] objectAtIndex:0], width);
  EXPECT_EQ([[content_ constraints] objectAtIndex:0], outer);
  [NSLayoutConstraint deactivateConstraints:[NSArray arrayWithObjects:gap, width, nil]];
  EXPECT_FALSE([gap isActive]);
  EXPECT_EQ([[box constraints] count], 0u);

  NSView *stranger = [[[NSView alloc] initWithFrame:NSZeroRect] autorelease];
  NSLayoutConstraint *impossible =
      Relate(a, NSLayoutAttributeLeft, NSLayoutRelationEqual, stranger, NSLayoutAttributeLeft);
  EXPECT_NE(ReasonOf(
                ^{
                  [impossible setActive:YES];
                },
                NSGenericException)
                .find("no common ancestor"),
            std::string::npos);
  EXPECT_NE(ReasonOf(
                ^{
                  [content_ addConstraint:impossible];
                },
                NSGenericException)
                .find("Unable to install constraint"),
            std::string::npos);
}

TEST_F(Layout, EqualConstraintsAreNotOne) {
  NSView *a = AddedView(content_);
  add(@"H:|[a(5)]", Entry(@"a", a));
  add(@"H:|[a(5)]", Entry(@"a", a));
  EXPECT_EQ([[content_ constraints] count], 4u);
  NSLayoutConstraint *first = [[content_ constraints] objectAtIndex:0];
  [content_ addConstraint:first];
  EXPECT_EQ([[content_ constraints] count], 4u);
  [content_ removeConstraint:first];
  EXPECT_EQ([[content_ constraints] count], 3u);
}

TEST_F(Layout, AFlippedSuperviewCountsFromItsTopToo) {
  NSTableView *table = static_cast<NSTableView *>(AddedView(content_, [NSTableView class]));
  ASSERT_TRUE([table isFlipped]);
  NSView *inner = AddedView(table);
  add(@"H:|-10-[table(100)]", Entry(@"table", table));
  add(@"V:|-20-[table(80)]", Entry(@"table", table));
  [table addConstraints:Visual(@"H:|-3-[inner(4)]", Entry(@"inner", inner))];
  [table addConstraints:Visual(@"V:|-5-[inner(6)]", Entry(@"inner", inner))];
  [window_ layoutIfNeeded];
  ExpectPlace(table, 10, 20, 100, 80);
  EXPECT_TRUE(NSEqualRects([inner frame], NSMakeRect(3, 5, 4, 6)));
}

TEST_F(Layout, TheFrameOfATranslatingViewStands) {
  NSView *fixed = [[[NSView alloc] initWithFrame:NSMakeRect(50, 60, 70, 80)] autorelease];
  [content_ addSubview:fixed];
  NSView *a = AddedView(content_);
  [content_ addConstraints:Visual(@"H:[fixed]-4-[a(fixed)]",
                                  [NSDictionary
                                      dictionaryWithObjectsAndKeys:fixed, @"fixed", a, @"a", nil],
                                  nil, NSLayoutFormatAlignAllTop)];
  add(@"V:[a(9)]", Entry(@"a", a));
  [window_ layoutIfNeeded];
  EXPECT_TRUE(NSEqualRects([fixed frame], NSMakeRect(50, 60, 70, 80)));
  ExpectPlace(a, 124, 215, 70, 9);  // 355 − 60 − 80
  [fixed setFrameOrigin:NSMakePoint(10, 60)];
  [window_ layoutIfNeeded];
  ExpectPlace(a, 84, 215, 70, 9);
}

TEST_F(Layout, TheMaskOfATranslatingViewFollowsALaidOutSuperview) {
  NSView *box = AddedView(content_);
  [box setFrame:NSMakeRect(0, 0, 100, 100)];
  NSView *inner = [[[NSView alloc] initWithFrame:NSMakeRect(10, 20, 80, 70)] autorelease];
  [inner setAutoresizingMask:NSViewWidthSizable | NSViewMinYMargin];
  [box addSubview:inner];
  NSView *a = AddedView(box);
  [box addConstraints:Visual(@"H:[a(inner)]|",
                             [NSDictionary
                                 dictionaryWithObjectsAndKeys:a, @"a", inner, @"inner", nil])];
  [box addConstraints:Visual(@"V:|[a(5)]", Entry(@"a", a))];
  add(@"H:|[box(300)]", Entry(@"box", box));
  add(@"V:|[box(200)]", Entry(@"box", box));
  [window_ layoutIfNeeded];
  ExpectPlace(inner, 10, 10, 280, 70);
  ExpectPlace(a, 20, 0, 280, 5);
}

TEST_F(Layout, AViewThatIsLaidOutIsNotAutoresizedToo) {
  NSView *a = AddedView(content_);
  [a setAutoresizingMask:NSViewWidthSizable | NSViewHeightSizable];
  add(@"H:|-10-[a(20)]", Entry(@"a", a));
  add(@"V:|-10-[a(20)]", Entry(@"a", a));
  [window_ layoutIfNeeded];
  [content_ setFrameSize:NSMakeSize(700, 500)];
  EXPECT_EQ(NSWidth([a frame]), 20);
  [window_ layoutIfNeeded];
  ExpectPlace(a, 10, 10, 20, 20);
}

TEST_F(Layout, MultipliersCountFromTheHolder) {
  NSView *a = AddedView(content_);
  [content_ addConstraint:Relate(a, NSLayoutAttributeWidth, NSLayoutRelationEqual, content_,
                                 NSLayoutAttributeWidth, 0.25, 1)];
  [content_ addConstraint:Relate(a, NSLayoutAttributeRight, NSLayoutRelationEqual, content_,
                                 NSLayoutAttributeCenterX, 1.5, 0)];
  add(@"V:|[a(5)]", Entry(@"a", a));
  [window_ layoutIfNeeded];
  ExpectPlace(a, 277, 0, 140, 5);  // 556 / 4 + 1, right edge at 417
}

TEST_F(Layout, HuggingDecidesWhichNeighbourGrows) {
  NSTextField *a = AddedLabel(content_, @"one", 12);
  NSTextField *b = AddedLabel(content_, @"two", 12);
  NSDictionary *views = [NSDictionary dictionaryWithObjectsAndKeys:a, @"a", b, @"b", nil];
  add(@"H:|[a][b]|", views);
  add(@"V:|[a]", views);
  add(@"V:|[b]", views);
  [a setContentHuggingPriority:251 forOrientation:NSLayoutConstraintOrientationHorizontal];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth(Aligned(a)), [a intrinsicContentSize].width);
  EXPECT_EQ(NSMaxX(Aligned(b)), 556);
  [b setContentHuggingPriority:252 forOrientation:NSLayoutConstraintOrientationHorizontal];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth(Aligned(b)), [b intrinsicContentSize].width);
}

TEST_F(Layout, CompressionResistanceDecidesWhichNeighbourShrinks) {
  NSTextField *a = AddedLabel(content_, @"something rather long", 12);
  NSTextField *b = AddedLabel(content_, @"something rather long", 12);
  NSDictionary *views = [NSDictionary dictionaryWithObjectsAndKeys:a, @"a", b, @"b", nil];
  const CGFloat natural = [a intrinsicContentSize].width;
  NSDictionary *room = Entry(@"room", [NSNumber numberWithDouble:natural + 20]);
  NSView *box = AddedView(content_);
  add(@"H:|[box(room)]", Entry(@"box", box), room);
  add(@"V:|[box(50)]", Entry(@"box", box));
  [box addSubview:a];
  [box addSubview:b];
  [box addConstraints:Visual(@"H:|[a][b]|", views)];
  [a setContentCompressionResistancePriority:749
                              forOrientation:NSLayoutConstraintOrientationHorizontal];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth(Aligned(a)), 20);
  EXPECT_EQ(NSWidth(Aligned(b)), natural);
}

TEST_F(Layout, WhatNothingDecidesIsSmallAndInTheCorner) {
  NSView *a = AddedView(content_);
  [a setFrame:NSMakeRect(30, 40, 50, 60)];
  [content_ setNeedsLayout:YES];
  [window_ layoutIfNeeded];
  ExpectPlace(a, 0, 0, 0, 0);
}

TEST_F(Layout, PrioritiesAndConstantsMayChange) {
  NSView *a = AddedView(content_);
  add(@"V:|[a(5)]", Entry(@"a", a));
  add(@"H:|[a]", Entry(@"a", a));
  NSLayoutConstraint *small = [Visual(@"[a(10@300)]", Entry(@"a", a)) objectAtIndex:0];
  NSLayoutConstraint *large = [Visual(@"[a(90@301)]", Entry(@"a", a)) objectAtIndex:0];
  [content_ addConstraint:small];
  [content_ addConstraint:large];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth([a frame]), 90);
  [small setPriority:302];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth([a frame]), 10);
  [small setConstant:12];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth([a frame]), 12);
  [small setActive:NO];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth([a frame]), 90);
}

TEST_F(Layout, AConflictIsLoggedOnceAndOneConstraintBroken) {
  NSView *a = AddedView(content_);
  add(@"H:|-3-[a(10)]", Entry(@"a", a));
  add(@"V:|[a(5)]", Entry(@"a", a));
  NSLayoutConstraint *wide = [Visual(@"[a(>=90)]", Entry(@"a", a)) objectAtIndex:0];
  [wide setIdentifier:@"too wide"];
  [content_ addConstraint:wide];
  testing::internal::CaptureStderr();
  [window_ layoutIfNeeded];
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("Unable to simultaneously satisfy constraints"), std::string::npos) << log;
  EXPECT_NE(log.find("'too wide' H:[NSView:0x"), std::string::npos) << log;
  EXPECT_NE(log.find("(>=90)]"), std::string::npos) << log;
  EXPECT_NE(log.find("(10)]"), std::string::npos) << log;
  EXPECT_EQ(log.find("-(3)-"), std::string::npos) << log;
  EXPECT_NE(log.find("breaking constraint \n<NSLayoutConstraint:0x"), std::string::npos) << log;
  ExpectPlace(a, 3, 0, 10, 5);
  [content_ setNeedsLayout:YES];
  testing::internal::CaptureStderr();
  [window_ layoutIfNeeded];
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ExpectPlace(a, 3, 0, 10, 5);
}

TEST_F(Layout, DescriptionsReadLikeTheVisualFormat) {
  NSView *a = AddedView(content_);
  NSView *b = AddedView(content_);
  NSDictionary *views = [NSDictionary dictionaryWithObjectsAndKeys:a, @"a", b, @"b", nil];
  NSArray *made = Visual(@"V:|-(>=8)-[a(b)]-6-[b(4@20)]|", views);
  const auto has = [&](NSUInteger index, NSString *part) {
    NSString *text = [[made objectAtIndex:index] description];
    EXPECT_NE([text rangeOfString:part].location, static_cast<NSUInteger>(NSNotFound))
        << [text UTF8String];
  };
  NSString *nameA = [NSString stringWithFormat:@"NSView:%p", a];
  NSString *nameB = [NSString stringWithFormat:@"NSView:%p", b];
  has(0, [NSString stringWithFormat:@"V:|-(>=8)-[%@]", nameA]);
  has(1, [NSString stringWithFormat:@"%@.height == %@.height", nameA, nameB]);
  has(2, [NSString stringWithFormat:@"V:[%@]-(6)-[%@]", nameA, nameB]);
  has(3, [NSString stringWithFormat:@"V:[%@(4)] @20", nameB]);
  has(4, [NSString stringWithFormat:@"V:[%@]|", nameB]);
  has(4, @"(inactive)");
}

TEST_F(Layout, AViewThatLeavesTakesItsConstraintsAway) {
  NSView *box = AddedView(content_);
  NSView *a = AddedView(box);
  add(@"H:|[box(40)]", Entry(@"box", box));
  [content_ addConstraint:Relate(a, NSLayoutAttributeLeft, NSLayoutRelationEqual, content_,
                                 NSLayoutAttributeLeft)];
  [box addConstraints:Visual(@"H:[a(7)]|", Entry(@"a", a))];
  add(@"V:[other(4)]", Entry(@"other", AddedView(content_)));
  EXPECT_EQ([[content_ constraints] count], 4u);
  [[box retain] autorelease];
  [box removeFromSuperview];
  // What mentions the box or a view in it is gone above it; what it holds itself stays.
  EXPECT_EQ([[content_ constraints] count], 1u);
  EXPECT_EQ([[box constraints] count], 2u);
}

TEST_F(Layout, StateAndConstraintsGoWithTheirViews) {
  NSLayoutConstraint *kept = nil;
  const void *address = nullptr;
  {
    NSAutoreleasePool *inner = [[NSAutoreleasePool alloc] init];
    NSView *a = AddedView(content_);
    address = a;
    add(@"H:|[a(10)]", Entry(@"a", a));
    kept = [[[content_ constraints] objectAtIndex:0] retain];
    EXPECT_NE(platform::layout::ExistingState(a), nullptr);
    [window_ layoutIfNeeded];
    [a removeFromSuperview];
    [inner release];
  }
  EXPECT_EQ(platform::layout::ExistingState(static_cast<NSView *>(const_cast<void *>(address))),
            nullptr);
  EXPECT_FALSE([kept isActive]);
  EXPECT_EQ([kept firstItem], nil);
  EXPECT_EQ([kept secondItem], content_);
  EXPECT_NE([[kept description] length], 0u);
  [kept release];
}

TEST_F(Layout, AWholeWindowGoesWithoutTraces) {
  NSLayoutConstraint *kept = nil;
  {
    NSAutoreleasePool *inner = [[NSAutoreleasePool alloc] init];
    NSWindow *window = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 100, 100)
                                                   styleMask:NSBorderlessWindowMask
                                                     backing:NSBackingStoreBuffered
                                                       defer:NO];
    [window setReleasedWhenClosed:NO];
    NSView *a = AddedView([window contentView]);
    kept = [[Visual(@"H:|[a]", Entry(@"a", a)) objectAtIndex:0] retain];
    [[window contentView] addConstraint:kept];
    [window orderFront:nil];
    [window orderOut:nil];
    [window release];
    [inner release];
  }
  EXPECT_TRUE(turnUntil(^bool {
    return [kept firstItem] == nil;
  }));
  EXPECT_FALSE([kept isActive]);
  [kept release];
}

TEST_F(Layout, ViewsBuiltOutsideAWindowAreLaidOutInIt) {
  NSView *box = [[[NSView alloc] initWithFrame:NSMakeRect(0, 0, 10, 10)] autorelease];
  NSView *a = AddedView(box);
  [box addConstraints:Visual(@"H:|-2-[a]-2-|", Entry(@"a", a))];
  [box addConstraints:Visual(@"V:|-2-[a(3)]", Entry(@"a", a))];
  [box layoutSubtreeIfNeeded];
  ExpectPlace(a, 2, 2, 6, 3);
  [window_ setContentView:box];
  [window_ layoutIfNeeded];
  ExpectPlace(a, 2, 2, 552, 3);
}

TEST_F(Layout, FittingSizeIsTheSmallestThatConstraintsAllow) {
  NSView *box = [[[NSView alloc] initWithFrame:NSMakeRect(0, 0, 500, 500)] autorelease];
  NSView *a = AddedView(box);
  [box addConstraints:Visual(@"H:|-[a(>=30)]-(>=4)-|", Entry(@"a", a))];
  [box addConstraints:Visual(@"V:|-[a(7)]-|", Entry(@"a", a))];
  EXPECT_TRUE(NSEqualSizes([box fittingSize], NSMakeSize(54, 47)));
  EXPECT_TRUE(NSEqualSizes([box frame].size, NSMakeSize(500, 500)));
  NSButton *button = AddedPushButton(content_, @"Title");
  EXPECT_TRUE(NSEqualSizes([button fittingSize], [[button cell] cellSize]));
}

TEST_F(Layout, TextFieldsKnowTheirNaturalSize) {
  NSTextField *field = AddedLabel(content_, @"some words that take a line", 13);
  const NSSize line = [field intrinsicContentSize];
  EXPECT_GT(line.width, 100);
  EXPECT_GE(line.height, 13);
  EXPECT_EQ(line.width, std::floor(line.width));
  [field setPreferredMaxLayoutWidth:line.width];
  EXPECT_TRUE(NSEqualSizes([field intrinsicContentSize], line));
  [field setPreferredMaxLayoutWidth:line.width / 2 + 20];
  const NSSize wrapped = [field intrinsicContentSize];
  EXPECT_LE(wrapped.width, std::ceil(line.width / 2 + 20));
  EXPECT_NEAR(wrapped.height, 2 * line.height, 2);
  [[field cell] setUsesSingleLineMode:YES];
  EXPECT_TRUE(NSEqualSizes([field intrinsicContentSize], line));
  [field setStringValue:@""];
  EXPECT_EQ([field intrinsicContentSize].width, 0);
  EXPECT_EQ([field intrinsicContentSize].height, line.height);
  [field setEditable:YES];
  EXPECT_EQ([field intrinsicContentSize].width, NSViewNoIntrinsicMetric);
}

TEST_F(Layout, TextFieldsWantOneLineUntilToldHowWideTheyMayBe) {
  NSTextField *field = AddedLabel(content_, @"some words that take a line", 13);
  const NSSize line = [field intrinsicContentSize];
  NSDictionary *views = Entry(@"field", field);
  [content_ addConstraints:Visual(@"H:|[field]", views)];
  [content_ addConstraints:Visual(@"V:|[field]", views)];
  const CGFloat narrow = line.width / 2 + 20;
  [content_ addConstraints:Visual(@"H:[field(narrow)]", views, Entry(@"narrow", @(narrow)))];
  [window_ layoutIfNeeded];
  EXPECT_NEAR(NSWidth(Aligned(field)), narrow, 1);
  EXPECT_EQ(NSHeight([field frame]), line.height);
  EXPECT_TRUE(NSEqualSizes([field intrinsicContentSize], line));

  [field setPreferredMaxLayoutWidth:narrow];
  [window_ layoutIfNeeded];
  EXPECT_NEAR(NSHeight([field frame]), 2 * line.height, 2);

  [field setPreferredMaxLayoutWidth:0];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSHeight([field frame]), line.height);
}

TEST_F(Layout, AWindowGrowsForWhatIsMoreUrgentThanItsSize) {
  [window_ setFrameOrigin:NSMakePoint(100, 200)];
  const NSRect before = [window_ frame];
  NSView *a = AddedView(content_);
  add(@"H:|-20-[a(>=600@499)]-20-|", Entry(@"a", a));
  add(@"V:|-20-[a(>=400@499)]-20-|", Entry(@"a", a));
  [window_ layoutIfNeeded];
  EXPECT_TRUE(NSEqualRects([window_ frame], before));

  add(@"H:[a(>=600@501)]", Entry(@"a", a));
  [window_ layoutIfNeeded];
  EXPECT_TRUE(NSEqualRects([window_ frame], NSMakeRect(100, 200, 640, 355)));
  ExpectPlace(a, 20, 20, 600, 315);

  add(@"V:[a(>=400)]", Entry(@"a", a));
  testing::internal::CaptureStderr();
  [window_ layoutIfNeeded];
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  // Its top left corner stays where it is.
  EXPECT_TRUE(NSEqualRects([window_ frame], NSMakeRect(100, 200 - 85, 640, 440)));
  ExpectPlace(a, 20, 20, 600, 400);
}

TEST_F(Layout, AWindowKeepsTheSizeThatItHasGrownTo) {
  NSTextField *field = AddedLabel(content_, @"short", 13);
  add(@"H:|-20-[field]-20-|", Entry(@"field", field));
  add(@"V:|[field]", Entry(@"field", field));
  // Not on the screen: the window manager may yet report the size at which it was shown.
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth([window_ frame]), 556);
  [field setStringValue:[@"" stringByPaddingToLength:200 withString:@"wide " startingAtIndex:0]];
  const CGFloat wide = [field intrinsicContentSize].width;
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth([window_ frame]), wide + 40);
  EXPECT_EQ(NSWidth(Aligned(field)), wide);
  [field setStringValue:@"short"];
  [window_ layoutIfNeeded];
  EXPECT_EQ(NSWidth([window_ frame]), wide + 40);
  EXPECT_EQ(NSWidth(Aligned(field)), wide);
}

TEST_F(Layout, AWindowStaysAsItIsForATextThatResistsLess) {
  NSTextField *field = AddedLabel(
      content_, [@"" stringByPaddingToLength:200 withString:@"wide " startingAtIndex:0], 13);
  add(@"H:|[field]|", Entry(@"field", field));
  add(@"V:|[field]", Entry(@"field", field));
  [field setContentCompressionResistancePriority:NSLayoutPriorityWindowSizeStayPut - 1
                                  forOrientation:NSLayoutConstraintOrientationHorizontal];
  [window_ orderFront:nil];
  EXPECT_EQ(NSWidth([window_ frame]), 556);
  EXPECT_EQ(NSWidth(Aligned(field)), 556);
}

TEST_F(Layout, AWindowBecomesAsSmallAsItsContentsHaveToBe) {
  NSView *a = AddedView(content_);
  add(@"H:|[a(300)]|", Entry(@"a", a));
  add(@"V:|[a(<=100)]|", Entry(@"a", a));
  const CGFloat top = NSMaxY([window_ frame]);
  [window_ layoutIfNeeded];
  EXPECT_TRUE(NSEqualSizes([window_ frame].size, NSMakeSize(300, 100)));
  EXPECT_EQ(NSMaxY([window_ frame]), top);
}

TEST_F(Layout, ButtonsAndImageViewsKnowTheirNaturalSize) {
  NSButton *button = AddedPushButton(content_, @"Button");
  const CGFloat title = std::ceil([[button attributedTitle] size].width);
  EXPECT_TRUE(NSEqualSizes([button intrinsicContentSize], NSMakeSize(title + 28, 21)));
  NSImage *image = [[[NSImage alloc] initWithSize:NSMakeSize(12, 14)] autorelease];
  NSButton *mark = static_cast<NSButton *>(AddedView(content_, [NSButton class]));
  [mark setBordered:NO];
  [mark setImage:image];
  EXPECT_TRUE(NSEqualSizes([mark intrinsicContentSize], NSMakeSize(12, 14)));
  NSImageView *picture = static_cast<NSImageView *>(AddedView(content_, [NSImageView class]));
  EXPECT_EQ([picture intrinsicContentSize].width, NSViewNoIntrinsicMetric);
  [picture setImage:image];
  EXPECT_TRUE(NSEqualSizes([picture intrinsicContentSize], NSMakeSize(12, 14)));
  EXPECT_EQ([content_ intrinsicContentSize].height, NSViewNoInstrinsicMetric);
}

TEST_F(Layout, PushButtonsAndLabelsAreSmallerThanTheirFrames) {
  NSButton *button = AddedPushButton(content_, @"Button");
  NSTextField *label = AddedLabel(content_, @"label", 13);
  NSView *table = AddedView(content_, [NSTableView class]);
  ASSERT_TRUE([table isFlipped]);
  NSButton *inTable = AddedPushButton(table, @"Button");
  for (NSView *view in @[ button, label, inTable ]) {
    NSDictionary *views = Entry(@"view", view);
    [[view superview] addConstraints:Visual(@"H:|-20-[view(100)]", views)];
    [[view superview] addConstraints:Visual(@"V:|-30-[view(21)]", views)];
  }
  NSDictionary *views = Entry(@"table", table);
  add(@"H:|[table(400)]", views);
  add(@"V:|[table(200)]", views);
  [window_ layoutIfNeeded];
  const CGFloat bottom = 355 - 30 - 21;
  EXPECT_TRUE(NSEqualRects([button frame], NSMakeRect(14, bottom - 7, 112, 32)));
  EXPECT_TRUE(NSEqualRects([inTable frame], NSMakeRect(14, 26, 112, 32)));
  EXPECT_TRUE(NSEqualRects([label frame], NSMakeRect(18, bottom, 104, 21)));
  // Fitted to their contents, they are as large as constraints make them.
  for (NSControl *control in @[ button, label ]) {
    [control sizeToFit];
    EXPECT_NEAR(NSWidth(Aligned(control)), [control intrinsicContentSize].width, 1);
    EXPECT_NEAR(NSHeight(Aligned(control)), [control intrinsicContentSize].height, 1);
  }
}

TEST_F(Layout, OtherControlsAreAsLargeAsTheirFrames) {
  NSButton *mark = static_cast<NSButton *>(AddedView(content_, [NSButton class]));
  [mark setBezelStyle:NSRoundedBezelStyle];
  [mark setBordered:NO];
  NSTextField *editable = AddedLabel(content_, @"text", 13);
  [editable setEditable:YES];
  NSTextField *bezeled = AddedLabel(content_, @"text", 13);
  [bezeled setBezeled:YES];
  NSPopUpButton *menu = static_cast<NSPopUpButton *>(AddedView(content_, [NSPopUpButton class]));
  [menu setBezelStyle:NSRoundedBezelStyle];
  NSView *image = AddedView(content_, [NSImageView class]);
  const NSRect frame = NSMakeRect(10, 20, 30, 40);
  for (NSView *view in @[ mark, editable, bezeled, menu, image, AddedView(content_) ]) {
    EXPECT_TRUE(NSEqualRects([view alignmentRectForFrame:frame], frame))
        << object_getClassName(view);
  }
}

TEST_F(Layout, BaselinesAlign) {
  NSTextField *small = AddedLabel(content_, @"small", 10);
  NSTextField *large = AddedLabel(content_, @"large", 30);
  NSDictionary *views =
      [NSDictionary dictionaryWithObjectsAndKeys:small, @"small", large, @"large", nil];
  add(@"V:|[large]", views);
  [content_
      addConstraints:Visual(@"H:|[small][large]", views, nil, NSLayoutFormatAlignAllLastBaseline)];
  [window_ layoutIfNeeded];
  const CGFloat smallBase = NSMinY([small frame]) + [small baselineOffsetFromBottom];
  const CGFloat largeBase = NSMinY([large frame]) + [large baselineOffsetFromBottom];
  EXPECT_NEAR(smallBase, largeBase, 1);
  EXPECT_GT(NSMinY([small frame]), NSMinY([large frame]));
}

TEST_F(Layout, LeadingIsRightInAViewThatIsLaidOutFromThere) {
  NSView *first = AddedView(content_);
  NSView *second = AddedView(content_);
  NSView *centred = AddedView(content_);
  NSDictionary *views = @{@"first" : first, @"second" : second};
  [content_ addConstraints:Visual(@"H:|-10-[first(40)]-(>=6)-[second(20)]", views)];
  [content_ addConstraints:@[
    Relate(second, NSLayoutAttributeLeading, NSLayoutRelationLessThanOrEqual, content_,
           NSLayoutAttributeLeading, 1, 56),
    Relate(centred, NSLayoutAttributeCenterX, NSLayoutRelationEqual, content_,
           NSLayoutAttributeCenterX, 1, 30),
    Relate(centred, NSLayoutAttributeTrailing, NSLayoutRelationEqual, content_,
           NSLayoutAttributeTrailing, 1, -200),
  ]];
  [content_ layoutSubtreeIfNeeded];
  EXPECT_EQ(content_.userInterfaceLayoutDirection, NSUserInterfaceLayoutDirectionLeftToRight);
  EXPECT_EQ(NSMinX(first.frame), 10);
  EXPECT_EQ(NSMinX(second.frame), 56);
  EXPECT_EQ(NSMaxX(centred.frame), 556 - 200);
  EXPECT_EQ(NSMidX(centred.frame), 278 + 30);

  content_.userInterfaceLayoutDirection = NSUserInterfaceLayoutDirectionRightToLeft;
  [content_ layoutSubtreeIfNeeded];
  EXPECT_EQ(NSMaxX(first.frame), 546);
  EXPECT_EQ(NSWidth(first.frame), 40);
  EXPECT_EQ(NSMaxX(second.frame), 500);
  // A centre alone has no direction: its distance keeps its sign.
  EXPECT_EQ(NSMinX(centred.frame), 200);
  EXPECT_EQ(NSMidX(centred.frame), 278 + 30);
}

TEST_F(Layout, ViewsAreLaidOutLikeTheApplicationUntilToldOtherwise) {
  NSUserDefaults *defaults = [NSUserDefaults standardUserDefaults];
  NSDictionary *before = [[[defaults volatileDomainForName:NSArgumentDomain] retain] autorelease];
  [defaults removeVolatileDomainForName:NSArgumentDomain];
  [defaults setVolatileDomain:@{@"NSForceRightToLeftWritingDirection" : @"YES"}
                      forName:NSArgumentDomain];
  EXPECT_EQ([NSApp userInterfaceLayoutDirection], NSUserInterfaceLayoutDirectionRightToLeft);
  NSView *told = AddedView(content_);
  told.userInterfaceLayoutDirection = NSUserInterfaceLayoutDirectionLeftToRight;
  EXPECT_EQ(content_.userInterfaceLayoutDirection, NSUserInterfaceLayoutDirectionRightToLeft);
  EXPECT_EQ(told.userInterfaceLayoutDirection, NSUserInterfaceLayoutDirectionLeftToRight);
  [defaults removeVolatileDomainForName:NSArgumentDomain];
  [defaults setVolatileDomain:before forName:NSArgumentDomain];
  EXPECT_EQ([NSApp userInterfaceLayoutDirection], NSUserInterfaceLayoutDirectionLeftToRight);
}

TEST_F(Layout, DefaultPrioritiesAreApples) {
  NSView *plain = AddedView(content_);
  NSButton *button = AddedPushButton(content_, @"");
  const auto horizontal = NSLayoutConstraintOrientationHorizontal;
  const auto vertical = NSLayoutConstraintOrientationVertical;
  EXPECT_EQ([plain contentHuggingPriorityForOrientation:vertical], 250);
  EXPECT_EQ([plain contentCompressionResistancePriorityForOrientation:vertical], 750);
  EXPECT_EQ([button contentHuggingPriorityForOrientation:horizontal], 250);
  EXPECT_EQ([button contentHuggingPriorityForOrientation:vertical], 750);
  EXPECT_TRUE([[[[NSView alloc] init] autorelease] translatesAutoresizingMaskIntoConstraints]);
}

TEST_F(Layout, AWindowWithoutConstraintsIsLeftAlone) {
  NSView *a = [[[NSView alloc] initWithFrame:NSMakeRect(10.5, 20.25, 30, 40)] autorelease];
  [a setAutoresizingMask:NSViewWidthSizable];
  [content_ addSubview:a];
  [window_ layoutIfNeeded];
  [window_ orderFront:nil];
  EXPECT_TRUE(NSEqualRects([a frame], NSMakeRect(10.5, 20.25, 30, 40)));
  EXPECT_EQ(platform::layout::ExistingState(a), nullptr);
  EXPECT_EQ(platform::layout::ExistingState(content_), nullptr);
  EXPECT_EQ([[content_ constraints] count], 0u);
  EXPECT_FALSE([content_ needsLayout]);
}

}  // namespace

/// Counts what Auto Layout sends, and sets a subview's frame by hand.
@interface LayoutTestView : NSView {
 @public
  int _updates;
  int _layouts;
}
@end

@implementation LayoutTestView

- (void)updateConstraints {
  ++_updates;
  [super updateConstraints];
}

- (void)layout {
  ++_layouts;
  [super layout];
  for (NSView *subview in [self subviews]) {
    [subview setFrame:NSMakeRect(0, 0, 1, 2)];
  }
}

- (NSEdgeInsets)alignmentRectInsets {
  return NSEdgeInsetsMake(4, 1, 3, 2);
}

- (NSSize)intrinsicContentSize {
  return NSMakeSize(50, 60);
}

@end

namespace {

TEST_F(Layout, SubclassesTakePart) {
  LayoutTestView *view = static_cast<LayoutTestView *>(AddedView(content_, [LayoutTestView class]));
  NSView *inner = [[[NSView alloc] initWithFrame:NSZeroRect] autorelease];
  [view addSubview:inner];
  add(@"H:|-10-[view]", Entry(@"view", view));
  add(@"V:|-10-[view]", Entry(@"view", view));
  [window_ layoutIfNeeded];
  EXPECT_EQ(view->_updates, 1);
  EXPECT_EQ(view->_layouts, 1);
  EXPECT_TRUE(NSEqualRects([inner frame], NSMakeRect(0, 0, 1, 2)));
  // Constraints place the alignment rectangle; the frame lies around it.
  ExpectPlace(view, 10, 10, 50, 60);
  EXPECT_TRUE(NSEqualRects([view frame], NSMakeRect(9, 355 - 73, 53, 67)));
  [window_ layoutIfNeeded];
  EXPECT_EQ(view->_layouts, 1);
  [view setNeedsLayout:YES];
  EXPECT_TRUE([view needsLayout]);
  [view setNeedsUpdateConstraints:YES];
  [window_ layoutIfNeeded];
  EXPECT_FALSE([view needsLayout]);
  EXPECT_EQ(view->_updates, 2);
  EXPECT_EQ(view->_layouts, 2);
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (getenv("DISPLAY") == nullptr) {
    fprintf(stderr, "layout_test cannot run: it opens windows, and DISPLAY names no X display\n");
    return 1;
  }
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  [NSApplication sharedApplication];
  [NSApp finishLaunching];
  const int result = RUN_ALL_TESTS();
  [pool release];
  return result;
}
