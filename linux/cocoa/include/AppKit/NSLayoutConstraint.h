// GNUstep's NSLayoutConstraint, and what Apple's has besides.

#ifndef PLATFORM_APPKIT_NSLAYOUTCONSTRAINT_H
#define PLATFORM_APPKIT_NSLAYOUTCONSTRAINT_H

#include_next <AppKit/NSLayoutConstraint.h>

@class NSString;

NS_ASSUME_NONNULL_BEGIN

/// A linear relation between two attributes of views:
/// first item's attribute (relation) multiplier × second item's attribute + constant.
///
/// Main thread only. The items are not retained; an item that goes away becomes nil here. Leading
/// is the left edge, or the right one where the holding view is laid out from right to left.
/// Locations are counted from the top left corner of the view that holds the constraint, downwards.
@interface NSLayoutConstraint (PlatformLayout)

/// Shown in the log when the constraint takes part in a conflict.
@property (copy, nullable) NSString *identifier;

/// Greater than 0, at most NSLayoutPriorityRequired (the default). Raises
/// NSInvalidArgumentException otherwise.
@property NSLayoutPriority priority;

/// May be changed while the constraint is active.
@property CGFloat constant;

/// Whether a view holds the constraint. YES adds it to the nearest common ancestor of its items and
/// raises NSGenericException where there is none.
@property (getter=isActive) BOOL active;

@end

NS_ASSUME_NONNULL_END

#endif
