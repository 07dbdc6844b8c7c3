// Substitutes the layer's constraint class for GNUstep's, which has no effect on a layout.

#import <AppKit/AppKit.h>

#import "layout/PlatformLayoutConstraint.h"

@implementation NSLayoutConstraint (Platform)

+ (instancetype)allocWithZone:(NSZone *)zone {
  Class wanted = self == [NSLayoutConstraint class] ? [PlatformLayoutConstraint class] : self;
  return NSAllocateObject(wanted, 0, zone);
}

+ (instancetype)constraintWithItem:(id)firstItem
                         attribute:(NSLayoutAttribute)firstAttribute
                         relatedBy:(NSLayoutRelation)relation
                            toItem:(id)secondItem
                         attribute:(NSLayoutAttribute)secondAttribute
                        multiplier:(CGFloat)multiplier
                          constant:(CGFloat)constant {
  return [[[PlatformLayoutConstraint alloc] initWithItem:firstItem
                                               attribute:firstAttribute
                                               relatedBy:relation
                                                  toItem:secondItem
                                               attribute:secondAttribute
                                              multiplier:multiplier
                                                constant:constant] autorelease];
}

+ (void)activateConstraints:(NSArray *)constraints {
  for (NSLayoutConstraint *constraint in constraints) {
    [constraint setActive:YES];
  }
}

+ (void)deactivateConstraints:(NSArray *)constraints {
  for (NSLayoutConstraint *constraint in constraints) {
    [constraint setActive:NO];
  }
}

@end
