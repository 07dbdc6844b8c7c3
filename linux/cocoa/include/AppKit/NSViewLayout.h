// Auto Layout on views, controls and windows, as Apple's AppKit declares it on the classes.

#ifndef PLATFORM_APPKIT_NSVIEWLAYOUT_H
#define PLATFORM_APPKIT_NSVIEWLAYOUT_H

#include <AppKit/NSApplication.h>
#include <AppKit/NSLayoutConstraint.h>
#include <AppKit/NSTextField.h>
#include <AppKit/NSView.h>
#include <AppKit/NSWindow.h>
#include <Foundation/NSArray.h>

NS_ASSUME_NONNULL_BEGIN

/// No intrinsic size in this direction. The second name is Apple's older one. (Not extern "C": newer
/// GNUstep declares them without, and the names of variables are the same either way.)
extern const CGFloat NSViewNoIntrinsicMetric;
extern const CGFloat NSViewNoInstrinsicMetric;

/// Right to left in a language that is written so, or with the default
/// `NSForceRightToLeftWritingDirection`.
@interface NSApplication (PlatformLayoutDirection)
@property (readonly) NSUserInterfaceLayoutDirection userInterfaceLayoutDirection;
@end

/// GNUstep declares this one: the application's until another is set. A constraint's leading and
/// trailing edges are those of the view that holds it; Apple does not say whether a plain view's
/// own direction counts there.
@interface NSView (PlatformLayoutDirection)
- (NSUserInterfaceLayoutDirection)userInterfaceLayoutDirection;
- (void)setUserInterfaceLayoutDirection:(NSUserInterfaceLayoutDirection)direction;
@end

/// All on the main thread. No frame is touched until the first constraint is made or the first
/// autoresizing translation is switched off.
@interface NSView (PlatformConstraints)

/// The constraints the receiver holds, in the order they came.
@property (readonly, copy) NSArray<NSLayoutConstraint *> *constraints;

/// Retains the constraint. Its items must be the receiver or below it: raises NSGenericException
/// otherwise. A constraint that another view holds moves here; one that is here already stays.
- (void)addConstraint:(NSLayoutConstraint *)constraint;
- (void)addConstraints:(NSArray<NSLayoutConstraint *> *)constraints;

/// Does nothing for a constraint the receiver does not hold. A view that leaves its superview takes
/// itself and its subviews out of all constraints of the views above, as on macOS.
- (void)removeConstraint:(NSLayoutConstraint *)constraint;
- (void)removeConstraints:(NSArray<NSLayoutConstraint *> *)constraints;

/// YES at first: frame and autoresizing mask count as required constraints.
@property BOOL translatesAutoresizingMaskIntoConstraints;

@end

@interface NSView (PlatformLayoutPass)

@property BOOL needsUpdateConstraints;

/// For subclasses, which send it to super last.
- (void)updateConstraints;
- (void)updateConstraintsForSubtreeIfNeeded;

/// Setting YES asks for a pass before the window is displayed next; NO is ignored.
@property BOOL needsLayout;

/// Gives the subviews the frames found for them. For subclasses, which send it to super first.
- (void)layout;

/// Brings the frames up to date, for the whole hierarchy that the receiver is in and its window.
- (void)layoutSubtreeIfNeeded;

/// The smallest size that the constraints of the receiver and the views below it allow.
@property (readonly) NSSize fittingSize;

@end

@interface NSView (PlatformIntrinsicSize)

/// The intrinsic size of the alignment rectangle in points, NSViewNoIntrinsicMetric where there is
/// none. Text fields (editable ones in height only), buttons and image views have one.
@property (readonly) NSSize intrinsicContentSize;
- (void)invalidateIntrinsicContentSize;

/// How strongly the view resists growing beyond its intrinsic size: 250 at first, 750 for the height
/// of text fields and buttons.
- (NSLayoutPriority)contentHuggingPriorityForOrientation:(NSLayoutConstraintOrientation)orientation;
- (void)setContentHuggingPriority:(NSLayoutPriority)priority
                   forOrientation:(NSLayoutConstraintOrientation)orientation;

/// How strongly the view resists shrinking below its intrinsic size: 750 at first.
- (NSLayoutPriority)contentCompressionResistancePriorityForOrientation:
    (NSLayoutConstraintOrientation)orientation;
- (void)setContentCompressionResistancePriority:(NSLayoutPriority)priority
                                 forOrientation:(NSLayoutConstraintOrientation)orientation;

@end

@interface NSView (PlatformAlignment)

/// What of the frame lies outside the rectangle that constraints align: something around push
/// buttons and labels, nothing around other views.
@property (readonly) NSEdgeInsets alignmentRectInsets;
- (NSRect)alignmentRectForFrame:(NSRect)frame;
- (NSRect)frameForAlignmentRect:(NSRect)alignmentRect;

/// Distances of the lowest and the first baseline from the bottom and the top of the alignment
/// rectangle. 0 for views without text.
@property (readonly) CGFloat baselineOffsetFromBottom;
@property (readonly) CGFloat lastBaselineOffsetFromBottom;
@property (readonly) CGFloat firstBaselineOffsetFromTop;

@end

@interface NSTextField (PlatformLayout)

/// The width in points at which the intrinsic size wraps the text; 0: it stays on its lines.
@property CGFloat preferredMaxLayoutWidth;

@end

@interface NSWindow (PlatformLayout)

- (void)updateConstraintsIfNeeded;

/// Brings the frames of the window's views up to date now. A window does so by itself before it is
/// ordered in or displayed. It becomes larger or smaller, its top left corner staying where it is,
/// for constraints of the content view that are above NSLayoutPriorityWindowSizeStayPut.
- (void)layoutIfNeeded;

@end

NS_ASSUME_NONNULL_END

#endif
