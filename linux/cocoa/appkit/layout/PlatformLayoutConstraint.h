#import <AppKit/AppKit.h>

NS_ASSUME_NONNULL_BEGIN

/// What every NSLayoutConstraint of this platform is. GNUstep's class keeps the items and numbers
/// but does nothing with them, and has no place for an identifier or the view that holds it.
@interface PlatformLayoutConstraint : NSLayoutConstraint {
  NSString *_identifier;
  NSView *_holder;
}

/// Raises NSInvalidArgumentException for attributes that do not fit together.
- (instancetype)initWithItem:(NSView *)firstItem
                   attribute:(NSLayoutAttribute)firstAttribute
                   relatedBy:(NSLayoutRelation)relation
                      toItem:(nullable NSView *)secondItem
                   attribute:(NSLayoutAttribute)secondAttribute
                  multiplier:(CGFloat)multiplier
                    constant:(CGFloat)constant;

/// The view whose list of constraints has this one; nil: not active. Not retained.
@property (assign, nullable) NSView *holder;

/// For a view that is being deallocated.
- (void)forgetItem:(NSView *)item;

@end

NS_ASSUME_NONNULL_END
