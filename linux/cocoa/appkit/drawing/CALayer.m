#import <AppKit/NSView.h>
#import <QuartzCore/CALayer.h>

@implementation CALayer

+ (instancetype)layer {
  return [[[self alloc] init] autorelease];
}

- (void)dealloc {
  CGColorRelease(_backgroundColor);
  [super dealloc];
}

- (CGColorRef)backgroundColor {
  return _backgroundColor;
}

- (void)setBackgroundColor:(CGColorRef)color {
  CGColorRetain(color);
  CGColorRelease(_backgroundColor);
  _backgroundColor = color;
  [self setNeedsDisplay];
}

- (CGFloat)cornerRadius {
  return _cornerRadius;
}

- (void)setCornerRadius:(CGFloat)radius {
  _cornerRadius = radius;
  [self setNeedsDisplay];
}

- (void)setNeedsDisplay {
  [_view setNeedsDisplay:YES];
}

- (void)platformSetView:(NSView *)view {
  _view = view;
}

@end
