#ifndef AFX_PERMISSION_WINDOW_CONTROLLER_H
#define AFX_PERMISSION_WINDOW_CONTROLLER_H

#import <AppKit/AppKit.h>

#include "ui/AFXConsentChoice.h"

NS_ASSUME_NONNULL_BEGIN

/// Takes the customer's answer; `email` is the address to share when it was allowed, else nil.
typedef void (^AFXPermissionCompletion)(AFXConsentChoice choice, NSString *_Nullable email);

/// Owns the window that asks the customer whether the e-mail address may be shared, for one
/// question. Main thread only. Whoever makes it keeps it alive until the answer has been given, and
/// until the action that gave it has returned.
@interface AFXPermissionWindowController : NSWindowController {
 @private
  NSString *_userEmail;
  AFXPermissionCompletion _completion;
  NSImageView *_iconView;
  NSImageView *_envelopeView;
  NSTextField *_titleField;
  NSTextField *_descriptionField;
  NSTextField *_informativeField;
  NSButton *_closeButton;
  NSButton *_cancelButton;
  NSButton *_okButton;
}

/// The address shown in the informative line and handed back when it is allowed.
@property (copy, nonatomic, nullable) NSString *userEmail;
/// Called on the main thread with each answer, once the window is hidden.
@property (copy, nonatomic, nullable) AFXPermissionCompletion completion;
@property (strong, nonatomic, nullable) NSImageView *iconView;
@property (strong, nonatomic, nullable) NSImageView *envelopeView;
@property (strong, nonatomic, nullable) NSTextField *titleField;
@property (strong, nonatomic, nullable) NSTextField *descriptionField;
@property (strong, nonatomic, nullable) NSTextField *informativeField;
@property (strong, nonatomic, nullable) NSButton *closeButton;
@property (strong, nonatomic, nullable) NSButton *cancelButton;
@property (strong, nonatomic, nullable) NSButton *okButton;

/// Builds the window and its contents without showing it. Both arguments are copied.
- (nullable instancetype)initWithUserEmail:(nullable NSString *)userEmail
                         completionHandler:(nullable AFXPermissionCompletion)completion
    NS_DESIGNATED_INITIALIZER;

- (instancetype)init NS_UNAVAILABLE;
- (instancetype)initWithWindow:(nullable NSWindow *)window NS_UNAVAILABLE;
- (nullable instancetype)initWithCoder:(NSCoder *)coder NS_UNAVAILABLE;

/// Hides the window, then hands the answer to the completion. The one way out of the window.
- (void)endWithPermissionChoice:(AFXConsentChoice)choice;

- (void)askLater:(nullable id)sender;
- (void)allowEmailSharing:(nullable id)sender;
- (void)forbidEmailSharing:(nullable id)sender;

@end

NS_ASSUME_NONNULL_END

#endif
