// What the tests of the look share: the application, the event loop, windows and screen pixels.

#ifndef COCOA_TESTING_LOOKTEST_H
#define COCOA_TESTING_LOOKTEST_H

#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace look {

/// Each test runs in a pool of its own, with the system's versions and the light appearance.
class LookTest : public testing::Test {
 protected:
  static void SetUpTestSuite();
  void SetUp() override;
  void TearDown() override;

 private:
  NSAutoreleasePool *pool_ = nil;
};

/// Handles events until the condition holds; false when it does not within the time, in seconds.
bool PumpUntil(const std::function<bool()> &condition, double seconds = 10);

struct Pixel {
  int red;
  int green;
  int blue;
};

/// What the screen shows there, row by row; x and y in pixels from its upper left corner. Empty
/// when a part is beyond the screen.
std::vector<Pixel> ScreenPixels(int x, int y, int width, int height);

/// What the screen shows there; x and y in pixels from its upper left corner.
Pixel ScreenPixel(int x, int y);

/// What the screen shows at this place of a window, in points from its upper left corner.
Pixel WindowPixel(NSWindow *window, int x, int y);

/// Whether no component is further away than `tolerance`.
bool Near(Pixel pixel, int red, int green, int blue, int tolerance = 2);

/// Runs this program again with one more environment variable and only these tests; returns its
/// exit code.
int RunAgain(const std::string &variable, const std::string &filter);

}  // namespace look

/// A borderless window that becomes key and main, transparent but for its content view: a layer of
/// the given white with round corners of 20 points.
@interface LookWindow : NSWindow
+ (LookWindow *)windowWithSize:(NSSize)size white:(CGFloat)white;
@end

#endif
