#ifndef NSVIEW_AFXENXTENSIONS_H
#define NSVIEW_AFXENXTENSIONS_H

#import <AppKit/AppKit.h>

NS_ASSUME_NONNULL_BEGIN

/// Shorthands for constraints, called on the container view and added to it. Main thread only.
@interface NSView (AFXEnxtensions)

/// Adds what `format` says of `views`. Leaves `translatesAutoresizingMaskIntoConstraints` of the
/// views to the caller. A format that the toolkit rejects raises the toolkit's own exception.
- (void)addVisualFormatConstraints:(NSString *)format
                             views:(NSDictionary<NSString *, id> *)views
                           metrics:(nullable NSDictionary<NSString *, NSNumber *> *)metrics;

/// Centres each of the views horizontally in the receiver; a view that is no direct subview of the
/// receiver is passed over.
- (void)addCenterXContraintForSubviews:(id<NSFastEnumeration>)subviews;

@end

NS_ASSUME_NONNULL_END

#endif
