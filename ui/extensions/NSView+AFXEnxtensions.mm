#import "ui/extensions/NSView+AFXEnxtensions.h"

@implementation NSView (AFXEnxtensions)

- (void)addVisualFormatConstraints:(NSString *)format
                             views:(NSDictionary<NSString *, id> *)views
                           metrics:(NSDictionary<NSString *, NSNumber *> *)metrics {
  [self addConstraints:[NSLayoutConstraint constraintsWithVisualFormat:format
                                                               options:0
                                                               metrics:metrics
                                                                 views:views]];
}

- (void)addCenterXContraintForSubviews:(id<NSFastEnumeration>)subviews {
  for (NSView *view in subviews) {
    if (view.superview == self) {
      [self addConstraint:[NSLayoutConstraint constraintWithItem:view
                                                       attribute:NSLayoutAttributeCenterX
                                                       relatedBy:NSLayoutRelationEqual
                                                          toItem:self
                                                       attribute:NSLayoutAttributeCenterX
                                                      multiplier:1.0
                                                        constant:0.0]];
    }
  }
}

@end
