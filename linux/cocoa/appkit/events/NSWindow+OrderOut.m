// A window that leaves the screen stops being key and main. GNUstep looks for a successor first,
// and gives up before the window has resigned where the window manager lists none.

#import <AppKit/AppKit.h>

@implementation NSWindow (PlatformOrderOut)

- (void)orderOut:(id)sender {
  [self orderWindow:NSWindowOut relativeTo:0];
  if ([self isKeyWindow]) {
    [self resignKeyWindow];
  }
  if ([self isMainWindow]) {
    [self resignMainWindow];
  }
}

@end
