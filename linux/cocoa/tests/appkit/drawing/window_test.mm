#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>

#include <CocoaTesting/LookTest.h>

// After GoogleTest: its macros are common words.
#include <X11/Xlib.h>

using look::Near;
using look::Pixel;
using look::PumpUntil;
using look::WindowPixel;

/// A green window behind the one under test, so that what shows through is known.
/// The toolkit looks for no successor of a window in an application that does not run.
@interface NSApplication (LookRunning)
- (void)look_setRunning:(BOOL)running;
@end

@implementation NSApplication (LookRunning)

- (void)look_setRunning:(BOOL)running {
  _app_is_running = running;
}

@end

class Windows : public look::LookTest {
 protected:
  void SetUp() override {
    look::LookTest::SetUp();
    behind_ = [[[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 400, 300)
                                           styleMask:NSWindowStyleMaskBorderless
                                             backing:NSBackingStoreBuffered
                                               defer:NO] autorelease];
    [behind_ setReleasedWhenClosed:NO];
    [behind_ setBackgroundColor:[NSColor greenColor]];
    [behind_ center];
    [behind_ orderFront:nil];
    ASSERT_TRUE(PumpUntil([=] { return Near(WindowPixel(behind_, 200, 150), 0, 255, 0); }));
  }

  void TearDown() override {
    [window_ close];
    [behind_ close];
    if (compositor_ > 0) {
      kill(compositor_, SIGTERM);
      waitpid(compositor_, nullptr, 0);
    }
    look::LookTest::TearDown();
  }

  void show(CGFloat white) {
    window_ = [LookWindow windowWithSize:NSMakeSize(200, 120) white:white];
    [window_
        setFrameOrigin:NSMakePoint(NSMinX([behind_ frame]) + 50, NSMinY([behind_ frame]) + 50)];
    [window_ makeKeyAndOrderFront:nil];
    ASSERT_TRUE(PumpUntil([=] {
      int value = (int)lround(white * 255);
      return Near(WindowPixel(window_, 100, 60), value, value, value);
    }));
  }

  bool becomesAt(int x, int y, int red, int green, int blue) {
    return PumpUntil([=] { return Near(WindowPixel(window_, x, y), red, green, blue); }, 5);
  }

  static bool compositorRuns() {
    Display *display = XOpenDisplay(nullptr);
    bool runs = XGetSelectionOwner(display, XInternAtom(display, "_NET_WM_CM_S0", False)) != None;
    XCloseDisplay(display);
    return runs;
  }

  bool startCompositor() {
    compositor_ = fork();
    if (compositor_ == 0) {
      execlp("picom", "picom", "--backend", "xrender", "--config", "/dev/null", nullptr);
      _exit(127);
    }
    return PumpUntil([this] {
             return compositorRuns() || waitpid(compositor_, nullptr, WNOHANG) != 0;
           }) &&
           compositorRuns();
  }

  NSWindow *behind_ = nil;
  LookWindow *window_ = nil;
  pid_t compositor_ = 0;
};

TEST_F(Windows, CornersShowWhatIsBehindWithoutACompositor) {
  if (compositorRuns()) {
    GTEST_SKIP() << "a compositing manager runs on this display";
  }
  show(1);
  EXPECT_TRUE(becomesAt(1, 1, 0, 255, 0));
  EXPECT_TRUE(becomesAt(198, 1, 0, 255, 0));
  EXPECT_TRUE(becomesAt(1, 118, 0, 255, 0));
  EXPECT_TRUE(becomesAt(198, 118, 0, 255, 0));
  // No dark fringe where the arc is: every pixel is one of the two colors.
  for (int x = 0; x < 20; x++) {
    for (int y = 0; y < 20; y++) {
      Pixel pixel = WindowPixel(window_, x, y);
      EXPECT_TRUE(Near(pixel, 0, 255, 0) || Near(pixel, 255, 255, 255))
          << x << "," << y << ": " << pixel.red << " " << pixel.green << " " << pixel.blue;
    }
  }
}

TEST_F(Windows, CutCornersFollowANewSize) {
  if (compositorRuns()) {
    GTEST_SKIP() << "a compositing manager runs on this display";
  }
  show(1);
  NSRect frame = [window_ frame];
  frame.size.width = 260;
  [window_ setFrame:frame display:YES];
  EXPECT_TRUE(becomesAt(258, 1, 0, 255, 0));
  EXPECT_TRUE(becomesAt(198, 1, 255, 255, 255));
}

TEST_F(Windows, CornersAreSmoothWhereACompositorRuns) {
  if (compositorRuns()) {
    GTEST_SKIP() << "a compositing manager runs on this display already";
  }
  if (!startCompositor()) {
    GTEST_SKIP() << "picom is not installed or does not start here";
  }
  show(1);
  EXPECT_TRUE(becomesAt(1, 1, 0, 255, 0));
  int mixed = 0;
  for (int x = 0; x < 20; x++) {
    for (int y = 0; y < 20; y++) {
      Pixel pixel = WindowPixel(window_, x, y);
      EXPECT_GE(pixel.green, 250) << "nothing darker than both colors";
      if (pixel.red > 20 && pixel.red < 235) {
        mixed++;
      }
    }
  }
  EXPECT_GE(mixed, 8) << "pixels along the arc are mixed from both colors";
}

TEST_F(Windows, OpaqueWindowIsNotCut) {
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(200, 120) white:1];
  [window setOpaque:YES];
  [window setBackgroundColor:[NSColor redColor]];
  window_ = window;
  [window_ setFrameOrigin:NSMakePoint(NSMinX([behind_ frame]) + 50, NSMinY([behind_ frame]) + 50)];
  [window_ orderFront:nil];
  EXPECT_TRUE(becomesAt(100, 60, 255, 255, 255));
  EXPECT_TRUE(becomesAt(1, 1, 255, 0, 0));
}

TEST_F(Windows, RetainedBackingKeepsWhatWasDrawn) {
  show(0.5);
  [behind_ orderFront:nil];
  ASSERT_TRUE(becomesAt(100, 60, 0, 255, 0));
  [window_ orderFront:nil];
  EXPECT_TRUE(becomesAt(100, 60, 128, 128, 128));
  EXPECT_EQ([window_ backingType], NSBackingStoreRetained);
}

TEST_F(Windows, ApplicationHasTheActivationPolicyThatItWasGiven) {
  // The tests' own environment has given it one.
  EXPECT_EQ([NSApp activationPolicy], NSApplicationActivationPolicyAccessory);
  EXPECT_TRUE([NSApp setActivationPolicy:NSApplicationActivationPolicyRegular]);
  EXPECT_EQ([NSApp activationPolicy], NSApplicationActivationPolicyRegular);
}

TEST_F(Windows, BorderlessWindowBecomesKeyAndMain) {
  show(1);
  EXPECT_TRUE(PumpUntil([=] { return [window_ isKeyWindow] && [window_ isMainWindow]; }));
}

TEST_F(Windows, OnlyOtherWindowBecomesKeyAndMainWhenTheFrontOneLeaves) {
  LookWindow *other = [LookWindow windowWithSize:NSMakeSize(100, 80) white:1];
  [other makeKeyAndOrderFront:nil];
  [behind_ orderOut:nil];
  show(1);
  [window_ makeKeyAndOrderFront:nil];
  ASSERT_TRUE([window_ isKeyWindow] && [window_ isMainWindow]);
  [NSApp look_setRunning:YES];
  [window_ orderOut:nil];
  [NSApp look_setRunning:NO];
  EXPECT_FALSE([window_ isKeyWindow] || [window_ isMainWindow]);
  EXPECT_TRUE([other isKeyWindow] && [other isMainWindow]);
  [other close];
}

TEST_F(Windows, CenterIsInTheMiddleAndAboveIt) {
  show(1);
  [window_ center];
  NSRect visible = [[NSScreen mainScreen] visibleFrame];
  NSRect frame = [window_ frame];
  EXPECT_NEAR(NSMidX(frame), NSMidX(visible), 1);
  CGFloat above = NSMaxY(visible) - NSMaxY(frame);
  CGFloat below = NSMinY(frame) - NSMinY(visible);
  EXPECT_NEAR(below, 2 * above, 3);
}
