#import "ui/AFXPermissionWindowController.h"

#include <cstddef>

#import "resources/AFXPictures.h"
#import "ui/AFXPermissionWindow.h"
#include "ui/AFXPlaceholders.h"
#import "ui/extensions/NSColor+Extensions.h"
#import "ui/extensions/NSFont+Extensions.h"
#import "ui/extensions/NSView+AFXEnxtensions.h"

static const NSSize sWindowSize = {556.0, 355.0};
static const NSSize sIconSize = {110.0, 110.0};
static const NSSize sImagesContainerSize = {232.0, 148.0};
static const CGFloat sTextMargin = 8.0;
/// In UTF-16 units; more than an address can have.
static const NSUInteger sLongestShownEmail = 320;

static NSString *const sAppearanceKeyPath = @"effectiveAppearance";

/// Whether the system has light and dark appearances, as it does from 10.14 on. A question to the
/// running system: the compiler's own check cannot be tested with an older one.
static BOOL __AFXSystemHasAppearances(void) {
  return [NSProcessInfo.processInfo
      isOperatingSystemAtLeastVersion:(NSOperatingSystemVersion){10, 14, 0}];
}

static NSString *__AFXLocalizedString(NSString *key) {
  return [NSBundle.mainBundle localizedStringForKey:key value:@"" table:@"Pellmar"];
}

/// The text of that key, to be filled with `count` objects. A translation that takes others would
/// end the application: the English text, which is the key, stands in for it.
static NSString *__AFXLocalizedFormat(NSString *key, unsigned count) {
  NSString *format = __AFXLocalizedString(key);
  const char *text = format.UTF8String;
  if (text && __AFXPlaceholdersFit(text, count)) {
    return format;
  }
  NSLog(@"Pellmar: the placeholders of the translation do not fit its key “%@”.", key);
  return key;
}

/// An address as the window shows it: to lay out megabytes would stall it.
static NSString *__AFXShownEmail(NSString *email) {
  if (email.length <= sLongestShownEmail) {
    return email ?: @"";
  }
  const NSRange end = [email rangeOfComposedCharacterSequenceAtIndex:sLongestShownEmail];
  return [[email substringToIndex:end.location] stringByAppendingString:@"…"];
}

/// Has a screen reader speak `label` for the control. It passes over a control with a single cell
/// and reads the cell, so both are told; the same holds below.
static void __AFXSetSpokenLabel(NSControl *control, NSString *label) {
  control.accessibilityLabel = label;
  NSCell *cell = control.cell;
  cell.accessibilityLabel = label;
}

/// Has screen readers pass over a control that says nothing.
static void __AFXKeepFromScreenReaders(NSControl *control) {
  control.accessibilityElement = NO;
  NSCell *cell = control.cell;
  cell.accessibilityElement = NO;
}

template <std::size_t length>
static NSImage *__AFXImage(const unsigned char (&picture)[length]) {
  NSData *data = [NSData dataWithBytes:picture length:length];
  return [[[NSImage alloc] initWithData:data] autorelease];
}

@implementation AFXPermissionWindowController

@synthesize userEmail = _userEmail;
@synthesize completion = _completion;
@synthesize iconView = _iconView;
@synthesize envelopeView = _envelopeView;
@synthesize titleField = _titleField;
@synthesize descriptionField = _descriptionField;
@synthesize informativeField = _informativeField;
@synthesize closeButton = _closeButton;
@synthesize cancelButton = _cancelButton;
@synthesize okButton = _okButton;

- (instancetype)initWithUserEmail:(NSString *)userEmail
                completionHandler:(AFXPermissionCompletion)completion {
  AFXPermissionWindow *window = [[AFXPermissionWindow alloc]
      initWithContentRect:NSMakeRect(0.0, 0.0, sWindowSize.width, sWindowSize.height)];
  self = [super initWithWindow:window];
  [window release];
  if (self) {
    self.userEmail = userEmail;
    self.completion = completion;
    [self setupUI];
    [self setupAppearance];
  }
  return self;
}

- (void)dealloc {
  if (__AFXSystemHasAppearances()) {
    [self.window removeObserver:self forKeyPath:sAppearanceKeyPath];
  }
  [_userEmail release];
  [_completion release];
  [_iconView release];
  [_envelopeView release];
  [_titleField release];
  [_descriptionField release];
  [_informativeField release];
  [_closeButton release];
  [_cancelButton release];
  [_okButton release];
  [super dealloc];
}

- (void)showWindow:(id)sender {
  [self.window center];
  [super showWindow:sender];
}

#pragma mark - Answers

- (void)endWithPermissionChoice:(AFXConsentChoice)choice {
  [self.window orderOut:nil];
  if (self.completion) {
    self.completion(choice, choice == AFXConsentChoiceAllowed ? self.userEmail : nil);
  }
}

- (void)askLater:(id)sender {
  [self endWithPermissionChoice:AFXConsentChoiceAskLater];
}

- (void)allowEmailSharing:(id)sender {
  [self endWithPermissionChoice:AFXConsentChoiceAllowed];
}

- (void)forbidEmailSharing:(id)sender {
  [self endWithPermissionChoice:AFXConsentChoiceDeclined];
}

#pragma mark - Contents

- (NSString *)_appName {
  return [NSBundle.mainBundle objectForInfoDictionaryKey:@"CFBundleName"];
}

/// The name as the texts show it: an application without a name leaves its place empty.
- (NSString *)_shownAppName {
  return [self _appName] ?: @"";
}

- (NSTextField *)_defaultTextField {
  NSTextField *field = [[[NSTextField alloc] initWithFrame:NSZeroRect] autorelease];
  field.editable = NO;
  field.bordered = NO;
  field.drawsBackground = NO;
  NSCell *cell = field.cell;
  cell.lineBreakMode = NSLineBreakByWordWrapping;
  cell.usesSingleLineMode = NO;
  field.alignment = NSTextAlignmentCenter;
  return field;
}

- (NSTextField *)_titleField {
  NSTextField *field = [self _defaultTextField];
  field.font = [NSFont afx_systemFontOfSize:32.0 weight:AFXFontWeightThin];
  field.stringValue = [NSString
      stringWithFormat:__AFXLocalizedFormat(@"Let’s stay in touch!", 1), [self _shownAppName]];
  [field sizeToFit];
  return field;
}

- (NSTextField *)_descriptionField {
  NSTextField *field = [self _defaultTextField];
  field.font = [NSFont afx_systemFontOfSize:14.0 weight:AFXFontWeightLight];
  field.textColor = [NSColor kv_colorWithSRGBHex:0x808080];
  field.stringValue =
      [NSString stringWithFormat:__AFXLocalizedFormat(
                                     @"%@ invites you to receive its newsletters and offers.", 1),
                                 [self _shownAppName]];
  [field sizeToFit];
  return field;
}

- (NSTextField *)_informativeField {
  NSTextField *field = [self _defaultTextField];
  field.font = [NSFont afx_systemFontOfSize:11.0 weight:AFXFontWeightLight];
  field.textColor = [NSColor kv_colorWithSRGBHex:0xA6A6A6];
  field.drawsBackground = YES;
  field.backgroundColor = [NSColor kv_colorWithRGBHex:0xF9F9F9];
  field.stringValue = [NSString
      stringWithFormat:__AFXLocalizedFormat(
                           @"Pellmar will share your %@ email with the developers of %@.", 2),
                       __AFXShownEmail(self.userEmail), [self _shownAppName]];
  [field sizeToFit];
  return field;
}

- (NSImageView *)_iconView {
  NSImageView *view = [[[NSImageView alloc]
      initWithFrame:NSMakeRect(0.0, 0.0, sIconSize.width, sIconSize.height)] autorelease];
  view.image = [NSImage imageNamed:NSImageNameApplicationIcon];
  __AFXKeepFromScreenReaders(view);
  return view;
}

- (NSImageView *)_envelopeView {
  NSImage *image = __AFXImage(AFXEnvelopeLightPicture);
  NSImageView *view = [[[NSImageView alloc]
      initWithFrame:NSMakeRect(0.0, 0.0, image.size.width, image.size.height)] autorelease];
  view.image = image;
  __AFXKeepFromScreenReaders(view);
  return view;
}

- (NSView *)_imagesContainerViewWithIconView:(NSView *)iconView
                                envelopeView:(NSView *)envelopeView {
  NSView *container = [[[NSView alloc]
      initWithFrame:NSMakeRect(0.0, 0.0, sImagesContainerSize.width, sImagesContainerSize.height)]
      autorelease];
  envelopeView.translatesAutoresizingMaskIntoConstraints = NO;
  iconView.translatesAutoresizingMaskIntoConstraints = NO;
  // The picture is the same in every language.
  for (NSView *view in @[ container, envelopeView, iconView ]) {
    view.userInterfaceLayoutDirection = NSUserInterfaceLayoutDirectionLeftToRight;
  }
  [container addSubview:envelopeView];
  [container addSubview:iconView];
  [container addVisualFormatConstraints:@"H:[envelope(width)]|"
                                  views:@{@"envelope" : envelopeView}
                                metrics:@{@"width" : @(NSWidth(envelopeView.frame))}];
  [container addVisualFormatConstraints:@"V:|[envelope(height)]"
                                  views:@{@"envelope" : envelopeView}
                                metrics:@{@"height" : @(NSHeight(envelopeView.frame))}];
  [container addVisualFormatConstraints:@"H:|[icon(width)]"
                                  views:@{@"icon" : iconView}
                                metrics:@{@"width" : @(NSWidth(iconView.frame))}];
  [container addVisualFormatConstraints:@"V:[icon(height)]|"
                                  views:@{@"icon" : iconView}
                                metrics:@{@"height" : @(NSHeight(iconView.frame))}];
  return container;
}

- (NSButton *)_buttonWithFrame:(NSRect)frame action:(SEL)action {
  NSButton *button = [[[NSButton alloc] initWithFrame:frame] autorelease];
  button.target = self;
  button.action = action;
  return button;
}

- (NSButton *)_closeButton {
  NSImage *image = __AFXImage(AFXCloseLightPicture);
  NSButton *button =
      [self _buttonWithFrame:NSMakeRect(0.0, 0.0, image.size.width, image.size.height)
                      action:@selector(askLater:)];
  button.bordered = NO;
  button.image = image;
  button.imagePosition = NSImageOnly;
  button.keyEquivalent = @"\x1b";
  // A new button's title is "Button": not shown here, but a screen reader would speak it.
  button.title = @"";
  __AFXSetSpokenLabel(button, __AFXLocalizedString(@"Ask Me Later"));
  return button;
}

- (NSButton *)_pixelCloseButton {
  NSButton *button = [self _buttonWithFrame:NSZeroRect action:@selector(askLater:)];
  button.title = @"";
  // AppKit draws some points of a bezel around an alignment rectangle of no size.
  button.bordered = NO;
  button.transparent = YES;
  button.keyEquivalent = @"w";
  button.keyEquivalentModifierMask = NSEventModifierFlagCommand;
  button.refusesFirstResponder = YES;
  __AFXKeepFromScreenReaders(button);
  return button;
}

- (NSButton *)_pushButtonWithTitle:(NSString *)title action:(SEL)action {
  NSButton *button = [self _buttonWithFrame:NSZeroRect action:action];
  button.bezelStyle = NSBezelStyleRounded;
  button.font = [NSFont afx_systemFontOfSize:13.0 weight:AFXFontWeightRegular];
  button.title = title;
  return button;
}

- (NSButton *)_cancelButton {
  return [self _pushButtonWithTitle:__AFXLocalizedString(@"No, Thanks")
                             action:@selector(forbidEmailSharing:)];
}

- (NSButton *)_okButton {
  NSButton *button = [self _pushButtonWithTitle:__AFXLocalizedString(@"Sure, I’m In")
                                         action:@selector(allowEmailSharing:)];
  button.keyEquivalent = @"\r";
  return button;
}

- (void)setupUI {
  NSView *contentView = self.window.contentView;
  contentView.wantsLayer = YES;

  NSImageView *iconView = [self _iconView];
  NSImageView *envelopeView = [self _envelopeView];
  NSView *imagesContainer = [self _imagesContainerViewWithIconView:iconView
                                                      envelopeView:envelopeView];
  NSTextField *titleField = [self _titleField];
  NSTextField *descriptionField = [self _descriptionField];
  NSTextField *informativeField = [self _informativeField];
  NSButton *pixelCloseButton = [self _pixelCloseButton];
  NSButton *closeButton = [self _closeButton];
  NSButton *cancelButton = [self _cancelButton];
  NSButton *okButton = [self _okButton];
  NSView *spacer = [[[NSView alloc] initWithFrame:NSZeroRect] autorelease];

  self.iconView = iconView;
  self.envelopeView = envelopeView;
  self.titleField = titleField;
  self.descriptionField = descriptionField;
  self.informativeField = informativeField;
  self.closeButton = closeButton;
  self.cancelButton = cancelButton;
  self.okButton = okButton;

  for (NSView *view in @[
         imagesContainer, titleField, descriptionField, informativeField, pixelCloseButton,
         closeButton, cancelButton, okButton, spacer
       ]) {
    view.translatesAutoresizingMaskIntoConstraints = NO;
    [contentView addSubview:view];
  }

  [contentView addVisualFormatConstraints:@"H:|-(10.0)-[close(width)]"
                                    views:@{@"close" : closeButton}
                                  metrics:@{@"width" : @(NSWidth(closeButton.frame))}];
  [contentView addVisualFormatConstraints:@"V:|-(8.0)-[close(height)]"
                                    views:@{@"close" : closeButton}
                                  metrics:@{@"height" : @(NSHeight(closeButton.frame))}];

  [contentView addVisualFormatConstraints:@"H:|[close(0.0)]"
                                    views:@{@"close" : pixelCloseButton}
                                  metrics:nil];
  [contentView addVisualFormatConstraints:@"V:|[close(0.0)]"
                                    views:@{@"close" : pixelCloseButton}
                                  metrics:nil];

  [contentView addVisualFormatConstraints:@"H:[icon(width)]"
                                    views:@{@"icon" : imagesContainer}
                                  metrics:@{@"width" : @(NSWidth(imagesContainer.frame))}];
  [contentView addCenterXContraintForSubviews:@[
    imagesContainer, titleField, descriptionField, informativeField, spacer
  ]];

  // The row of buttons gives way first, so that a description of several lines leaves the footer
  // inside the window.
  [contentView
      addVisualFormatConstraints:
          @"V:|-(35.0)-[icon(i_height)]-(13.0)-[title]-(6.0)-[description][buttons(64.0@251)]"
          @"-(2.0)-[info]-(>=8.0)-|"
                           views:@{
                             @"icon" : imagesContainer,
                             @"title" : titleField,
                             @"description" : descriptionField,
                             @"buttons" : spacer,
                             @"info" : informativeField
                           }
                         metrics:@{@"i_height" : @(NSHeight(imagesContainer.frame))}];

  NSDictionary *margin = @{@"d" : @(sTextMargin)};
  [contentView addVisualFormatConstraints:@"H:|-(d)-[title]-(d)-|"
                                    views:@{@"title" : titleField}
                                  metrics:margin];
  [contentView addVisualFormatConstraints:@"H:|-(d)-[description]-(d)-|"
                                    views:@{@"description" : descriptionField}
                                  metrics:margin];
  [contentView addVisualFormatConstraints:@"H:|-(d)-[info]-(d)-|"
                                    views:@{@"info" : informativeField}
                                  metrics:margin];
  // Without it a text asks for the width of its one line, and for more of that than a window keeps
  // its own.
  for (NSTextField *field in @[ titleField, descriptionField, informativeField ]) {
    field.preferredMaxLayoutWidth = NSWidth(contentView.frame) - 2.0 * sTextMargin;
  }
  [contentView addVisualFormatConstraints:@"H:|-(8.0)-[info]-(8.0)-|"
                                    views:@{@"info" : informativeField}
                                  metrics:nil];

  [contentView
      addVisualFormatConstraints:@"H:[cancel(>=110.0)]-(6.0)-[center(1.0)]-(6.0)-[ok(cancel)]"
                           views:@{@"cancel" : cancelButton, @"center" : spacer, @"ok" : okButton}
                         metrics:nil];
  for (NSButton *button in @[ cancelButton, okButton ]) {
    [contentView addConstraint:[NSLayoutConstraint constraintWithItem:button
                                                            attribute:NSLayoutAttributeCenterY
                                                            relatedBy:NSLayoutRelationEqual
                                                               toItem:spacer
                                                            attribute:NSLayoutAttributeCenterY
                                                           multiplier:1.0
                                                             constant:0.0]];
  }

  // A borderless window has no title of its own for a screen reader to announce it by, and no kind.
  self.window.accessibilityTitle = titleField.stringValue;
  self.window.accessibilitySubrole = NSAccessibilityDialogSubrole;

  self.window.initialFirstResponder = okButton;
  okButton.nextKeyView = closeButton;
  closeButton.nextKeyView = cancelButton;
  cancelButton.nextKeyView = okButton;
}

#pragma mark - Appearance

- (void)setupAppearance {
  if (__AFXSystemHasAppearances()) {
    [self.window addObserver:self
                  forKeyPath:sAppearanceKeyPath
                     options:NSKeyValueObservingOptionNew | NSKeyValueObservingOptionInitial
                     context:NULL];
  }
}

- (void)observeValueForKeyPath:(NSString *)keyPath
                      ofObject:(id)object
                        change:(NSDictionary *)change
                       context:(void *)context {
  if ([keyPath isEqualToString:sAppearanceKeyPath]) {
    [self updateAccordingToAppearance];
  } else {
    [super observeValueForKeyPath:keyPath ofObject:object change:change context:context];
  }
}

- (void)updateAccordingToAppearance {
  if (!__AFXSystemHasAppearances()) {
    return;
  }
  static NSString *const sDarkName = @"NSAppearanceNameDarkAqua";
// Guarded by the question above, which the compiler does not know.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wunguarded-availability"
  NSString *match = [self.window.effectiveAppearance
      bestMatchFromAppearancesWithNames:@[ NSAppearanceNameAqua, sDarkName ]];
#pragma clang diagnostic pop
  const BOOL isDark = [match isEqualToString:sDarkName];

  NSColor *background = [NSColor kv_colorWithRGBHex:isDark ? 0x333333 : 0xF9F9F9];
  NSView *contentView = self.window.contentView;
  contentView.layer.backgroundColor = background.CGColor;
  self.titleField.textColor = isDark ? NSColor.whiteColor : NSColor.blackColor;
  self.descriptionField.textColor =
      isDark ? NSColor.whiteColor : [NSColor kv_colorWithSRGBHex:0x808080];
  self.informativeField.backgroundColor = background;
  self.envelopeView.image =
      isDark ? __AFXImage(AFXEnvelopeDarkPicture) : __AFXImage(AFXEnvelopeLightPicture);
  self.closeButton.image =
      isDark ? __AFXImage(AFXCloseDarkPicture) : __AFXImage(AFXCloseLightPicture);
}

@end
