#include <CocoaTesting/LookTest.h>

using look::Near;
using look::PumpUntil;
using look::WindowPixel;

class Layers : public look::LookTest {
 protected:
  void TearDown() override {
    [window_ close];
    look::LookTest::TearDown();
  }

  NSView *shown(CGFloat white) {
    window_ = [LookWindow windowWithSize:NSMakeSize(200, 120) white:white];
    [window_ center];
    [window_ orderFront:nil];
    return [window_ contentView];
  }

  bool becomesAt(int x, int y, int red, int green, int blue) {
    return PumpUntil([=] { return Near(WindowPixel(window_, x, y), red, green, blue); });
  }

  LookWindow *window_ = nil;
};

/// Draws a blue square and does not call super.
@interface LookSquareView : NSView
@end

@implementation LookSquareView
- (void)drawRect:(NSRect)rect {
  (void)rect;
  [[NSColor blueColor] setFill];
  NSRectFill(NSMakeRect(0, 0, 10, 10));
}
@end

TEST_F(Layers, AppearsAndGoesWithWantsLayer) {
  NSView *view = [[[NSView alloc] initWithFrame:NSMakeRect(0, 0, 10, 10)] autorelease];
  EXPECT_FALSE([view wantsLayer]);
  EXPECT_EQ([view layer], nil);
  [view setWantsLayer:YES];
  CALayer *layer = [view layer];
  ASSERT_NE(layer, nil);
  EXPECT_EQ([layer backgroundColor], nullptr);
  EXPECT_EQ([layer cornerRadius], 0);
  [view setWantsLayer:YES];
  EXPECT_EQ([view layer], layer);
  [view setWantsLayer:NO];
  EXPECT_EQ([view layer], nil);
}

TEST_F(Layers, KeepsTheColorItWasGiven) {
  CALayer *layer = [CALayer layer];
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  [layer setBackgroundColor:[[NSColor colorWithRed:0.1 green:0.2 blue:0.3 alpha:1] CGColor]];
  [layer setBackgroundColor:[layer backgroundColor]];
  [pool release];
  EXPECT_EQ(CGColorGetComponents([layer backgroundColor])[2], 0.3);
  [layer setBackgroundColor:nullptr];
  EXPECT_EQ([layer backgroundColor], nullptr);
}

TEST_F(Layers, OutlivesItsViewUnharmed) {
  CALayer *layer = nil;
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  NSView *view = [[NSView alloc] initWithFrame:NSMakeRect(0, 0, 10, 10)];
  [view setWantsLayer:YES];
  layer = [[view layer] retain];
  [view release];
  [pool release];
  EXPECT_EQ([layer retainCount], 1u);
  [layer setCornerRadius:3];
  [layer release];

  // A new view, perhaps at the same address, starts without one.
  for (int i = 0; i < 100; i++) {
    NSView *next = [[NSView alloc] initWithFrame:NSMakeRect(0, 0, 10, 10)];
    EXPECT_EQ([next layer], nil);
    [next setWantsLayer:YES];
    [next release];
  }
}

TEST_F(Layers, FillsTheViewOnTheScreen) {
  shown(249 / 255.0);
  EXPECT_TRUE(becomesAt(100, 60, 249, 249, 249));
  EXPECT_TRUE(becomesAt(100, 0, 249, 249, 249));
  EXPECT_TRUE(becomesAt(0, 60, 249, 249, 249));
  EXPECT_TRUE(becomesAt(199, 119 - 20, 249, 249, 249));
}

TEST_F(Layers, AnotherColorIsShownAtOnce) {
  NSView *view = shown(1);
  ASSERT_TRUE(becomesAt(100, 60, 255, 255, 255));
  [[view layer] setBackgroundColor:[[NSColor colorWithRed:0.2 green:0.2 blue:0.2 alpha:1] CGColor]];
  EXPECT_TRUE(becomesAt(100, 60, 51, 51, 51));
}

TEST_F(Layers, LiesBelowWhatTheViewDraws) {
  NSView *content = shown(1);
  NSView *view = [[[LookSquareView alloc] initWithFrame:NSMakeRect(50, 50, 20, 20)] autorelease];
  [view setWantsLayer:YES];
  [[view layer] setBackgroundColor:[[NSColor colorWithRed:1 green:0 blue:0 alpha:1] CGColor]];
  [content addSubview:view];
  EXPECT_TRUE(becomesAt(55, 65, 0, 0, 255));
  EXPECT_TRUE(becomesAt(65, 55, 255, 0, 0));
}

TEST_F(Layers, RoundCornersLeaveWhatIsBehindThem) {
  NSView *content = shown(1);
  NSView *view = [[[NSView alloc] initWithFrame:NSMakeRect(40, 40, 40, 40)] autorelease];
  [view setWantsLayer:YES];
  [[view layer] setBackgroundColor:[[NSColor colorWithRed:1 green:0 blue:0 alpha:1] CGColor]];
  [[view layer] setCornerRadius:12];
  [content addSubview:view];
  ASSERT_TRUE(becomesAt(60, 60, 255, 0, 0));
  EXPECT_TRUE(becomesAt(41, 41, 255, 255, 255));
  EXPECT_TRUE(becomesAt(78, 78, 255, 255, 255));
  EXPECT_TRUE(becomesAt(60, 41, 255, 0, 0));
}

TEST_F(Layers, TranslucentColorIsMixedWithWhatIsBehind) {
  NSView *content = shown(1);
  NSView *view = [[[NSView alloc] initWithFrame:NSMakeRect(40, 40, 40, 40)] autorelease];
  [view setWantsLayer:YES];
  [[view layer] setBackgroundColor:[[NSColor colorWithRed:0 green:0 blue:0 alpha:0.5] CGColor]];
  [content addSubview:view];
  EXPECT_TRUE(becomesAt(60, 60, 127, 127, 127));
}
