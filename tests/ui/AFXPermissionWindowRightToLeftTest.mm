//
// The consent window in an application that is laid out from right to left, as this one is when it
// is started with the defaults for that: -NSForceRightToLeftWritingDirection YES
// -AppleTextDirection YES.
//

#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include "alignment.h"
#import "ui/AFXPermissionWindowController.h"

namespace {

void ExpectRect(NSRect rect, CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
  EXPECT_EQ(NSMinX(rect), x);
  EXPECT_EQ(NSMinY(rect), y);
  EXPECT_EQ(NSWidth(rect), width);
  EXPECT_EQ(NSHeight(rect), height);
}

}  // namespace

TEST(RightToLeft, ButtonsChangeSidesAndThePictureStaysAsItIs) {
  ASSERT_EQ(NSApp.userInterfaceLayoutDirection, NSUserInterfaceLayoutDirectionRightToLeft);
  @autoreleasepool {
    AFXPermissionWindowController *controller =
        [[AFXPermissionWindowController alloc] initWithUserEmail:@"jane@example.com"
                                               completionHandler:nil];
    [controller.window.contentView layoutSubtreeIfNeeded];
    ExpectRect(AlignmentOf(controller.iconView), 162, 172, 110, 110);
    ExpectRect(AlignmentOf(controller.envelopeView), 180, 171, 214, 149);
    ExpectRect(AlignmentOf(controller.closeButton), 534, 335, 12, 12);
    const NSRect ok = AlignmentOf(controller.okButton);
    const NSRect cancel = AlignmentOf(controller.cancelButton);
    EXPECT_NEAR(NSMinX(cancel) - NSMaxX(ok), 13.0, 0.5);
    EXPECT_NEAR(NSMaxX(ok) + NSMinX(cancel), 556.0, 1.0);
    for (NSView *view in
         @[ controller.iconView.superview, controller.iconView, controller.envelopeView ]) {
      EXPECT_EQ(view.userInterfaceLayoutDirection, NSUserInterfaceLayoutDirectionLeftToRight);
    }
    [controller release];
  }
}
