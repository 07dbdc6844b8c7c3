#import <AppKit/NSScreen.h>
#import <AppKit/NSWindow.h>

@implementation NSWindow (PlatformCenter)

/// Exactly in the middle from side to side, and above the middle of the screen: half as much room
/// is left above the window as below it.
- (void)center {
  NSScreen *screen = [self screen] ? [self screen] : [NSScreen mainScreen];
  NSRect visible = [screen visibleFrame];
  NSSize size = [self frame].size;
  CGFloat below = (NSHeight(visible) - size.height) * 2 / 3;
  [self setFrameOrigin:NSMakePoint(floor(NSMidX(visible) - size.width / 2),
                                   floor(NSMinY(visible) + below))];
}

@end
