#ifndef AFX_PERMISSION_WINDOW_H
#define AFX_PERMISSION_WINDOW_H

#import <AppKit/AppKit.h>

NS_ASSUME_NONNULL_BEGIN

/// A borderless window with round corners and a shadow that can be dragged by its background and
/// takes the keyboard. Main thread only.
@interface AFXPermissionWindow : NSWindow

/// @param contentRect the window's frame, in screen points: a borderless window has no other.
- (nullable instancetype)initWithContentRect:(NSRect)contentRect NS_DESIGNATED_INITIALIZER;

- (instancetype)init NS_UNAVAILABLE;
- (instancetype)initWithContentRect:(NSRect)contentRect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backingStoreType
                              defer:(BOOL)flag NS_UNAVAILABLE;

@end

NS_ASSUME_NONNULL_END

#endif
