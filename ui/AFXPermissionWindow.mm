#import "ui/AFXPermissionWindow.h"

static const CGFloat sCornerRadius = 5.0;
static const CGFloat sBackgroundGray = 249.0 / 255.0;

/// The retained backing store is asked for on purpose; its constant is deprecated in newer headers.
static const NSBackingStoreType sRetainedBackingStore = static_cast<NSBackingStoreType>(0);

@implementation AFXPermissionWindow

- (instancetype)initWithContentRect:(NSRect)contentRect {
  self = [super initWithContentRect:contentRect
                          styleMask:NSWindowStyleMaskBorderless
                            backing:sRetainedBackingStore
                              defer:NO];
  if (self) {
    self.releasedWhenClosed = YES;
    self.movableByWindowBackground = YES;
    self.opaque = NO;
    self.backgroundColor = NSColor.clearColor;
    self.hasShadow = YES;

    NSView *background = [[NSView alloc] initWithFrame:contentRect];
    background.autoresizingMask = NSViewWidthSizable | NSViewHeightSizable;
    background.wantsLayer = YES;
    background.layer.backgroundColor = [NSColor colorWithRed:sBackgroundGray
                                                       green:sBackgroundGray
                                                        blue:sBackgroundGray
                                                       alpha:1.0]
                                           .CGColor;
    background.layer.cornerRadius = sCornerRadius;
    self.contentView = background;
    [background release];
  }
  return self;
}

// A borderless window refuses both by default, and then neither the buttons' key equivalents nor
// the default button work.
- (BOOL)canBecomeKeyWindow {
  return YES;
}

- (BOOL)canBecomeMainWindow {
  return YES;
}

@end
