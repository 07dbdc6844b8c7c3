#import <CocoaTesting/LookTest.h>
#import <CocoaTesting/PlatformVersions.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace {

Display *SharedDisplay() {
  static Display *display = XOpenDisplay(nullptr);
  return display;
}

}  // namespace

namespace look {

void LookTest::SetUpTestSuite() {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  [NSApplication sharedApplication];
  // A program without a bundle is none whose windows could become key, until it says so.
  [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory];
  [NSApp finishLaunching];
  [NSApp activateIgnoringOtherApps:YES];
  [pool release];
}

void LookTest::SetUp() { pool_ = [[NSAutoreleasePool alloc] init]; }

void LookTest::TearDown() {
  [NSApp setAppearance:nil];
  [pool_ release];
}

bool PumpUntil(const std::function<bool()> &condition, double seconds) {
  NSDate *end = [NSDate dateWithTimeIntervalSinceNow:seconds];
  while (!condition()) {
    if ([end timeIntervalSinceNow] < 0) {
      return false;
    }
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    NSEvent *event = [NSApp nextEventMatchingMask:NSAnyEventMask
                                        untilDate:[NSDate dateWithTimeIntervalSinceNow:0.02]
                                           inMode:NSDefaultRunLoopMode
                                          dequeue:YES];
    if (event) {
      [NSApp sendEvent:event];
    }
    [NSApp updateWindows];
    [pool release];
  }
  return true;
}

std::vector<Pixel> ScreenPixels(int x, int y, int width, int height) {
  Display *display = SharedDisplay();
  const int screen = DefaultScreen(display);
  if (x < 0 || y < 0 || x + width > DisplayWidth(display, screen) ||
      y + height > DisplayHeight(display, screen)) {
    return {};
  }
  XImage *image = XGetImage(display, DefaultRootWindow(display), x, y, (unsigned)width,
                            (unsigned)height, AllPlanes, ZPixmap);
  std::vector<Pixel> pixels;
  for (int row = 0; row < height; row++) {
    for (int column = 0; column < width; column++) {
      unsigned long value = XGetPixel(image, column, row);
      pixels.push_back({(int)(value >> 16 & 255), (int)(value >> 8 & 255), (int)(value & 255)});
    }
  }
  XDestroyImage(image);
  return pixels;
}

Pixel ScreenPixel(int x, int y) {
  std::vector<Pixel> pixels = ScreenPixels(x, y, 1, 1);
  return pixels.empty() ? Pixel{-1, -1, -1} : pixels.front();
}

Pixel WindowPixel(NSWindow *window, int x, int y) {
  NSRect frame = [window frame];
  CGFloat screen = NSHeight([[NSScreen mainScreen] frame]);
  return ScreenPixel((int)NSMinX(frame) + x, (int)(screen - NSMaxY(frame)) + y);
}

bool Near(Pixel pixel, int red, int green, int blue, int tolerance) {
  return std::abs(pixel.red - red) <= tolerance && std::abs(pixel.green - green) <= tolerance &&
         std::abs(pixel.blue - blue) <= tolerance;
}

int RunAgain(const std::string &variable, const std::string &filter) {
  char path[4096];
  ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 1);
  if (length < 0) {
    return -1;
  }
  path[length] = 0;
  std::string command =
      variable + " '" + path + "' --gtest_brief=1 --gtest_filter='" + filter + "'";
  int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace look

@implementation LookWindow

+ (LookWindow *)windowWithSize:(NSSize)size white:(CGFloat)white {
  NSRect rect = {{0, 0}, size};
  LookWindow *window = [[[LookWindow alloc] initWithContentRect:rect
                                                      styleMask:NSWindowStyleMaskBorderless
                                                        backing:NSBackingStoreRetained
                                                          defer:NO] autorelease];
  [window setReleasedWhenClosed:NO];
  [window setOpaque:NO];
  [window setBackgroundColor:[NSColor clearColor]];
  NSView *content = [[[NSView alloc] initWithFrame:rect] autorelease];
  [content setWantsLayer:YES];
  [[content layer] setBackgroundColor:[[NSColor colorWithRed:white green:white blue:white
                                                       alpha:1] CGColor]];
  [[content layer] setCornerRadius:20];
  [window setContentView:content];
  return window;
}

- (BOOL)canBecomeKeyWindow {
  return YES;
}

- (BOOL)canBecomeMainWindow {
  return YES;
}

@end
