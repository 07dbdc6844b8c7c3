//
// The consent window's light and dark look: what its views hold, and what is seen of them on the
// screen. And that a window leaves nothing behind, however often one comes and goes.
//

#import <AppKit/AppKit.h>
#import <CocoaTesting/PlatformVersions.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <CocoaTesting/LookTest.h>
#include "event_loop.h"
#include "resources/AFXPictures.h"
#import "ui/AFXPermissionWindow.h"
#import "ui/AFXPermissionWindowController.h"

// After GoogleTest: its macros are common words.
#include <X11/Xlib.h>

static int sControllersAlive;

/// Counts itself.
@interface CountedPermissionWindowController : AFXPermissionWindowController
@end

@implementation CountedPermissionWindowController

- (instancetype)initWithUserEmail:(NSString *)userEmail
                completionHandler:(AFXPermissionCompletion)completion {
  self = [super initWithUserEmail:userEmail completionHandler:completion];
  ++sControllersAlive;
  return self;
}

- (void)dealloc {
  --sControllersAlive;
  [super dealloc];
}

@end

static int sObserversAdded;
static int sObserversRemoved;

/// Counts how often a controller begins and ends to observe it. The toolkit may observe it too.
@implementation AFXPermissionWindow (Counting)

- (void)addObserver:(NSObject *)observer
         forKeyPath:(NSString *)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(void *)context {
  if ([observer isKindOfClass:AFXPermissionWindowController.class]) {
    EXPECT_STREQ(keyPath.UTF8String, "effectiveAppearance");
    EXPECT_EQ(options, 5u);
    EXPECT_EQ(context, nullptr);
    ++sObserversAdded;
  }
  [super addObserver:observer forKeyPath:keyPath options:options context:context];
}

- (void)removeObserver:(NSObject *)observer forKeyPath:(NSString *)keyPath {
  if ([observer isKindOfClass:AFXPermissionWindowController.class]) {
    EXPECT_STREQ(keyPath.UTF8String, "effectiveAppearance");
    ++sObserversRemoved;
  }
  [super removeObserver:observer forKeyPath:keyPath];
}

@end

/// An appearance that is like none of the named ones.
@interface StrangeAppearance : NSAppearance
@end

@implementation StrangeAppearance
- (NSString *)bestMatchFromAppearancesWithNames:(NSArray *)names {
  return nil;
}
@end

namespace {

using look::Pixel;

struct Look {
  bool isDark;
  int background;
  int title;
  int description;
  const unsigned char *envelope;
  std::size_t envelopeLength;
  CGFloat envelopeWidth;
  const unsigned char *closeMark;
  std::size_t closeMarkLength;
};

const Look kLight{false,
                  0xF9,
                  0x00,
                  0x80,
                  AFXEnvelopeLightPicture,
                  AFXEnvelopeLightPictureLength,
                  214,
                  AFXCloseLightPicture,
                  AFXCloseLightPictureLength};
const Look kDark{true,
                 0x33,
                 0xFF,
                 0xFF,
                 AFXEnvelopeDarkPicture,
                 AFXEnvelopeDarkPictureLength,
                 213,
                 AFXCloseDarkPicture,
                 AFXCloseDarkPictureLength};

/// Runs one iteration of the event loop: handles and draws what is due, without waiting.
void RunOneIteration() {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  while (NSEvent *event = [NSApp nextEventMatchingMask:NSAnyEventMask
                                             untilDate:[NSDate distantPast]
                                                inMode:NSDefaultRunLoopMode
                                               dequeue:YES]) {
    [NSApp sendEvent:event];
  }
  [NSApp updateWindows];
  [pool release];
}

/// Gives the display server time for what it was sent, and the application none.
bool ScreenComesToShow(const std::function<bool()> &condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

/// What the screen shows of a view, row by row from its upper left corner.
std::vector<Pixel> ScreenPixelsOf(NSView *view) {
  const NSRect rect = [view convertRect:view.bounds toView:nil];
  const NSRect frame = view.window.frame;
  const CGFloat screen = NSHeight(NSScreen.mainScreen.frame);
  return look::ScreenPixels(static_cast<int>(NSMinX(frame) + NSMinX(rect)),
                            static_cast<int>(screen - NSMinY(frame) - NSMaxY(rect)),
                            static_cast<int>(NSWidth(rect)), static_cast<int>(NSHeight(rect)));
}

/// The bitmaps of an image. Drawing it may have added a cache of another kind.
NSArray *BitmapsOf(NSImage *image) {
  NSMutableArray *bitmaps = [NSMutableArray array];
  for (NSImageRep *representation in image.representations) {
    if ([representation isKindOfClass:NSBitmapImageRep.class]) {
      [bitmaps addObject:representation];
    }
  }
  return bitmaps;
}

NSImage *ImageFrom(const unsigned char *bytes, std::size_t length) {
  NSData *data = [NSData dataWithBytes:bytes length:length];
  return [[[NSImage alloc] initWithData:data] autorelease];
}

/// Whether both have the same bitmaps. Where they are not opaque, the toolkit changes the colors of
/// one that it has drawn.
void ExpectSamePicture(NSImage *found, NSImage *expected) {
  EXPECT_TRUE(NSEqualSizes(found.size, expected.size));
  NSArray *foundBitmaps = BitmapsOf(found);
  NSArray *expectedBitmaps = BitmapsOf(expected);
  ASSERT_EQ(foundBitmaps.count, 2u);
  ASSERT_EQ(expectedBitmaps.count, 2u);
  for (NSUInteger i : {0, 1}) {
    NSBitmapImageRep *a = [foundBitmaps objectAtIndex:i];
    NSBitmapImageRep *b = [expectedBitmaps objectAtIndex:i];
    ASSERT_EQ(a.pixelsWide, b.pixelsWide);
    ASSERT_EQ(a.pixelsHigh, b.pixelsHigh);
    int different = 0;
    for (NSInteger y = 0; y < a.pixelsHigh; ++y) {
      for (NSInteger x = 0; x < a.pixelsWide; ++x) {
        NSUInteger p[5] = {};
        NSUInteger q[5] = {};
        [a getPixel:p atX:x y:y];
        [b getPixel:q atX:x y:y];
        different += p[3] != q[3] || (p[3] == 255 && !std::equal(p, p + 3, q));
      }
    }
    EXPECT_EQ(different, 0) << "of " << a.pixelsWide * a.pixelsHigh << " pixels";
  }
}

/// How far the screen is from the opaque pixels of a picture in this view, in parts of 255; what is
/// left of `from` is covered by something else. A picture narrower than its view stands half a
/// point further to the right, which may have been rounded either way.
double Distance(NSImage *picture, NSView *view, int from) {
  NSBitmapImageRep *bitmap = [BitmapsOf(picture) objectAtIndex:0];
  const std::vector<Pixel> screen = ScreenPixelsOf(view);
  const int width = static_cast<int>(NSWidth(view.bounds));
  if (screen.empty()) {
    return 255;
  }
  double least = 255;
  for (int shift = 0; shift <= width - bitmap.pixelsWide; ++shift) {
    double sum = 0;
    int count = 0;
    for (int y = 0; y < bitmap.pixelsHigh; ++y) {
      for (int x = from; x < bitmap.pixelsWide; ++x) {
        NSUInteger own[5] = {};
        [bitmap getPixel:own atX:x y:y];
        if (own[3] == 255) {
          const Pixel &seen = screen[static_cast<std::size_t>(y) * width + x + shift];
          sum += std::abs(seen.red - static_cast<int>(own[0])) +
                 std::abs(seen.green - static_cast<int>(own[1])) +
                 std::abs(seen.blue - static_cast<int>(own[2]));
          count += 3;
        }
      }
    }
    least = std::min(least, sum / count);
  }
  return least;
}

/// `space`: the one that the color was made in.
void ExpectGray(NSColor *color, int value, NSColorSpace *space) {
  NSColor *rgb = [color colorUsingColorSpace:space];
  ASSERT_NE(rgb, nil);
  EXPECT_NEAR(rgb.redComponent * 255, value, 0.5);
  EXPECT_NEAR(rgb.greenComponent * 255, value, 0.5);
  EXPECT_NEAR(rgb.blueComponent * 255, value, 0.5);
  EXPECT_EQ(rgb.alphaComponent, 1.0);
}

/// What a text is drawn in shows where most of it is: the pixel furthest from the background.
int FurthestFrom(int background, NSView *view) {
  int furthest = background;
  for (const Pixel &pixel : ScreenPixelsOf(view)) {
    if (std::abs(pixel.green - background) > std::abs(furthest - background)) {
      furthest = pixel.green;
    }
  }
  return furthest;
}

class WindowAppearance : public testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    sObserversAdded = 0;
    sObserversRemoved = 0;
    UseAppearance(NSAppearanceNameAqua);
  }

  void TearDown() override {
    close();
    PlatformSetOperatingSystemVersion((NSOperatingSystemVersion){14, 6, 0});
    UseAppearance(nil);
    [pool_ release];
  }

  void open(NSString *email = @"jane@example.com") {
    controller_ = [[CountedPermissionWindowController alloc] initWithUserEmail:email
                                                             completionHandler:nil];
    [controller_ showWindow:nil];
  }

  void close() {
    [controller_.window orderOut:nil];
    [controller_ release];
    controller_ = nil;
  }

  /// Waits until the window is on the screen for the first time, which takes the window manager.
  void waitForScreen(const Look &look) {
    std::string fault;
    look::PumpUntil([&] { return (fault = faultOnScreen(look)).empty(); });
    ASSERT_EQ(fault, "");
  }

  /// The window is told of another appearance at once or by the event loop.
  void expectViews(const Look &look) {
    NSImageView *envelope = controller_.envelopeView;
    EXPECT_TRUE(ComesTrue([&] { return envelope.image.size.width == look.envelopeWidth; }));
    NSView *content = controller_.window.contentView;
    NSColor *background = [NSColor colorWithCGColor:content.layer.backgroundColor];
    NSColorSpace *generic = NSColorSpace.genericRGBColorSpace;
    NSColorSpace *sRGB = NSColorSpace.sRGBColorSpace;
    ExpectGray(background, look.background, generic);
    ExpectGray(controller_.informativeField.backgroundColor, look.background, generic);
    ExpectGray(controller_.titleField.textColor, look.title, sRGB);
    ExpectGray(controller_.descriptionField.textColor, look.description, sRGB);
    // The same in both looks.
    ExpectGray(controller_.informativeField.textColor, 0xA6, sRGB);
    ExpectSamePicture(controller_.envelopeView.image,
                      ImageFrom(look.envelope, look.envelopeLength));
    ExpectSamePicture(controller_.closeButton.image,
                      ImageFrom(look.closeMark, look.closeMarkLength));
    EXPECT_EQ(NSWidth(controller_.envelopeView.frame), 214.0);
  }

  /// What is wrong about what the screen shows of the window, or nothing.
  std::string faultOnScreen(const Look &look) {
    const int ground = look.background;
    const auto isGround = [&](const Pixel &pixel) {
      return look::Near(pixel, ground, ground, ground);
    };
    for (const auto &[x, y] :
         std::vector<std::pair<int, int>>{{278, 4}, {4, 178}, {552, 178}, {278, 350}, {60, 100}}) {
      if (!isGround(look::WindowPixel(controller_.window, x, y))) {
        return "the background at " + std::to_string(x) + ", " + std::to_string(y);
      }
    }
    // Thin strokes cover no pixel in full.
    const struct {
      const char *name;
      NSTextField *field;
      int gray;
      int tolerance;
    } texts[] = {{"headline", controller_.titleField, look.title, 60},
                 {"description", controller_.descriptionField, look.description, 40},
                 {"footer", controller_.informativeField, 0xA6, 25}};
    for (const auto &text : texts) {
      // A background of its own would show at its ends, which no text reaches.
      const std::vector<Pixel> pixels = ScreenPixelsOf(text.field);
      if (pixels.empty() || !isGround(pixels.front()) || !isGround(pixels.back())) {
        return std::string("the background of the ") + text.name;
      }
      const int gray = FurthestFrom(ground, text.field);
      if (std::abs(gray - text.gray) > text.tolerance) {
        return std::string("the ") + text.name + ": " + std::to_string(gray);
      }
    }
    const Look &other = look.isDark ? kLight : kDark;
    const struct {
      const char *name;
      NSView *view;
      int from;
      NSImage *own;
      NSImage *foreign;
    } pictures[] = {
        {"envelope", controller_.envelopeView, 100, ImageFrom(look.envelope, look.envelopeLength),
         ImageFrom(other.envelope, other.envelopeLength)},
        {"close mark", controller_.closeButton, 0, ImageFrom(look.closeMark, look.closeMarkLength),
         ImageFrom(other.closeMark, other.closeMarkLength)}};
    for (const auto &picture : pictures) {
      const double own = Distance(picture.own, picture.view, picture.from);
      const double foreign = Distance(picture.foreign, picture.view, picture.from);
      if (own > 3.0 || foreign < 3.0 * own + 3.0) {
        return std::string("the ") + picture.name + ": " + std::to_string(own) + " from its own, " +
               std::to_string(foreign) + " from that of the other look";
      }
    }
    return "";
  }

  /// Without another iteration of the event loop.
  void expectScreen(const Look &look) {
    std::string fault;
    ScreenComesToShow([&] { return (fault = faultOnScreen(look)).empty(); });
    EXPECT_EQ(fault, "");
  }

  CountedPermissionWindowController *controller_ = nil;

 private:
  NSAutoreleasePool *pool_ = nil;
};

}  // namespace

#pragma mark - Light and dark

TEST_F(WindowAppearance, IsThatOfTheSystemFromTheStart) {
  UseAppearance(NSAppearanceNameDarkAqua);
  open();
  expectViews(kDark);
  waitForScreen(kDark);
}

TEST_F(WindowAppearance, IsFollowedAndSeenAfterOneIterationOfTheEventLoop) {
  open();
  waitForScreen(kLight);
  expectViews(kLight);
  expectScreen(kLight);
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    UseAppearance(NSAppearanceNameDarkAqua);
    expectViews(kDark);
    RunOneIteration();
    expectScreen(kDark);

    UseAppearance(NSAppearanceNameAqua);
    expectViews(kLight);
    RunOneIteration();
    expectScreen(kLight);
  }
}

TEST_F(WindowAppearance, IsFollowedByAHiddenWindow) {
  open();
  waitForScreen(kLight);
  [controller_ askLater:nil];
  UseAppearance(NSAppearanceNameDarkAqua);
  expectViews(kDark);
  [controller_ showWindow:nil];
  waitForScreen(kDark);
}

TEST_F(WindowAppearance, GivesBackgroundAndFooterOneColor) {
  open();
  NSColor *light = controller_.informativeField.backgroundColor;
  EXPECT_TRUE(
      CGColorEqualToColor([controller_.window.contentView layer].backgroundColor, light.CGColor));
  UseAppearance(NSAppearanceNameDarkAqua);
  NSColor *dark = controller_.informativeField.backgroundColor;
  EXPECT_TRUE(
      CGColorEqualToColor([controller_.window.contentView layer].backgroundColor, dark.CGColor));
}

TEST_F(WindowAppearance, TakesVibrantAndHighContrastOnesForWhatTheyAreMostLike) {
  open();
  waitForScreen(kLight);
  const struct {
    NSString *name;
    const Look &look;
  } cases[] = {
      {NSAppearanceNameVibrantDark, kDark},
      {NSAppearanceNameVibrantLight, kLight},
      {NSAppearanceNameAccessibilityHighContrastDarkAqua, kDark},
      {NSAppearanceNameAccessibilityHighContrastAqua, kLight},
      {NSAppearanceNameAccessibilityHighContrastVibrantDark, kDark},
      {NSAppearanceNameAccessibilityHighContrastVibrantLight, kLight},
  };
  for (const auto &[name, look] : cases) {
    SCOPED_TRACE(name.UTF8String);
    UseAppearance(name);
    expectViews(look);
    RunOneIteration();
    expectScreen(look);
  }
}

TEST_F(WindowAppearance, IsLightWhenNothingMatches) {
  UseAppearance(NSAppearanceNameDarkAqua);
  open();
  expectViews(kDark);
  NSApp.appearance = [[[StrangeAppearance alloc] init] autorelease];
  expectViews(kLight);
}

TEST_F(WindowAppearance, OfTheWindowGoesBeforeTheApplications) {
  open();
  controller_.window.appearance = [NSAppearance appearanceNamed:NSAppearanceNameDarkAqua];
  expectViews(kDark);
  UseAppearance(NSAppearanceNameVibrantLight);
  expectViews(kDark);
  controller_.window.appearance = nil;
  expectViews(kLight);
}

TEST_F(WindowAppearance, StaysLightAndUnobservedOnAnOlderSystem) {
  PlatformSetOperatingSystemVersion((NSOperatingSystemVersion){10, 13, 6});
  UseAppearance(NSAppearanceNameDarkAqua);
  open();
  waitForScreen(kLight);
  expectViews(kLight);
  for (NSString *name in @[ NSAppearanceNameAqua, NSAppearanceNameDarkAqua ]) {
    UseAppearance(name);
    expectViews(kLight);
    RunOneIteration();
    expectScreen(kLight);
  }
  // Nor does a message that comes all the same change anything.
  [controller_ observeValueForKeyPath:@"effectiveAppearance"
                             ofObject:controller_.window
                               change:nil
                              context:nullptr];
  expectViews(kLight);
  close();
  EXPECT_EQ(sObserversAdded, 0);
  EXPECT_EQ(sObserversRemoved, 0);
}

TEST_F(WindowAppearance, IsObservedFromTenFourteenOn) {
  PlatformSetOperatingSystemVersion((NSOperatingSystemVersion){10, 14, 0});
  UseAppearance(NSAppearanceNameDarkAqua);
  open();
  expectViews(kDark);
  EXPECT_EQ(sObserversAdded, 1);
  EXPECT_EQ(sObserversRemoved, 0);
  close();
  EXPECT_EQ(sObserversAdded, 1);
  EXPECT_EQ(sObserversRemoved, 1);
}

TEST_F(WindowAppearance, HasAFooterOfAsManyLinesAsALongAddressTakes) {
  open();
  [controller_.window.contentView layoutSubtreeIfNeeded];
  const CGFloat oneLine = NSHeight(controller_.informativeField.frame);
  close();
  open(@"maximiliane.hohenzollern-sigmaringen+newsletters@post.department.example.com");
  [controller_.window.contentView layoutSubtreeIfNeeded];
  EXPECT_GE(NSHeight(controller_.informativeField.frame), 2.0 * oneLine - 6.0);
  EXPECT_GE(NSMinY(controller_.informativeField.frame), 8.0);
}

#pragma mark - Coming and going

namespace {

struct Footprint {
  std::size_t heap;
  std::size_t resident;
  unsigned int windows;
};

unsigned int TopLevelWindows(Display *display) {
  ::Window root = 0;
  ::Window parent = 0;
  ::Window *children = nullptr;
  unsigned int count = 0;
  XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count);
  if (children) {
    XFree(children);
  }
  return count;
}

Footprint MeasureFootprint(Display *display) {
  malloc_trim(0);
  const struct mallinfo2 info = mallinfo2();
  std::size_t pages = 0;
  std::size_t residentPages = 0;
  std::ifstream("/proc/self/statm") >> pages >> residentPages;
  return {info.uordblks + info.hblkhd,
          residentPages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)),
          TopLevelWindows(display)};
}

#if __has_feature(address_sanitizer)
constexpr bool kCountsMemory = false;  // it keeps what was freed for a while
constexpr int kWarmUp = 4;
#else
constexpr bool kCountsMemory = true;
constexpr int kWarmUp = 20;
#endif

}  // namespace

TEST_F(WindowAppearance, NoObserverIsLeftOnAWindowThatOutlivesItsController) {
  open();
  NSWindow *window = [controller_.window retain];
  EXPECT_EQ(sObserversAdded, 1);
  EXPECT_EQ(sObserversRemoved, 0);
  close();
  EXPECT_EQ(sObserversAdded, 1);
  EXPECT_EQ(sObserversRemoved, 1);
  [window release];
}

/// Each window sees a switch before it is shown, while it is up, while it is hidden, and one that
/// comes after it.
TEST_F(WindowAppearance, TwoHundredWindowsComeAndGoAcrossSwitchesAndLeaveNothing) {
  Display *display = XOpenDisplay(nullptr);
  bool dark = false;
  const auto comeAndGo = [&](int count) {
    for (int i = 0; i < count; ++i) {
      NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
      const auto toggle = [&] {
        dark = !dark;
        UseAppearance(dark ? NSAppearanceNameDarkAqua : NSAppearanceNameAqua);
      };
      open();
      toggle();
      RunOneIteration();
      ExpectGray(controller_.titleField.textColor, dark ? 0xFF : 0x00, NSColorSpace.sRGBColorSpace);
      toggle();
      RunOneIteration();
      [controller_ askLater:nil];
      toggle();
      // Every other window is still somebody else's for a while.
      NSWindow *window = i % 4 < 2 ? [controller_.window retain] : nil;
      [controller_ release];
      controller_ = nil;
      toggle();
      if (window) {
        EXPECT_EQ(sObserversRemoved, sObserversAdded);
        [window release];
      }
      toggle();
      RunOneIteration();
      [pool release];
    }
    RunOneIteration();
    XSync(display, False);
  };

  // The first ones fill the toolkit's caches.
  comeAndGo(kWarmUp);
  const NSUInteger windows = NSApp.windows.count;
  const Footprint before = MeasureFootprint(display);
  comeAndGo(200);
  const Footprint after = MeasureFootprint(display);

  EXPECT_EQ(sControllersAlive, 0);
  EXPECT_EQ(sObserversAdded, kWarmUp + 200);
  EXPECT_EQ(sObserversRemoved, kWarmUp + 200);
  EXPECT_EQ(NSApp.windows.count, windows);
  // The window manager takes its frames away in its own time.
  EXPECT_TRUE(ScreenComesToShow([&] { return TopLevelWindows(display) <= before.windows; }));
  if (kCountsMemory) {
    const auto grownKiB = [](std::size_t from, std::size_t to) {
      return (static_cast<double>(to) - static_cast<double>(from)) / 1024;
    };
    const double heap = grownKiB(before.heap, after.heap);
    const double resident = grownKiB(before.resident, after.resident);
    std::printf("200 windows: heap %+.1f KiB, resident %+.1f KiB\n", heap, resident);
    // A few strings of caches; the pictures of one window alone are 1.2 MiB.
    EXPECT_LT(heap, 40);
    EXPECT_LT(resident, 2048);
  }
  XCloseDisplay(display);
}
