// The appearance of application, windows and views.

#ifndef PLATFORM_APPKIT_NSAPPEARANCECUSTOMIZATION_H
#define PLATFORM_APPKIT_NSAPPEARANCECUSTOMIZATION_H

#import <AppKit/NSAppearance.h>
#import <AppKit/NSApplication.h>
#import <AppKit/NSView.h>
#import <AppKit/NSWindow.h>

NS_ASSUME_NONNULL_BEGIN

// What these have in common: `appearance` is the object's own, nil to inherit it (a view from its
// superview, the outermost view from its window, a window from the application; the application's
// is Aqua then). `effectiveAppearance` is what comes of that, never nil, and can be observed with
// key-value observing: a setter anywhere above notifies, before it returns, every observed object
// whose effective appearance it changes. Main thread only.

@interface NSApplication (PlatformAppearance)
- (nullable NSAppearance *)appearance;
- (void)setAppearance:(nullable NSAppearance *)appearance;
- (NSAppearance *)effectiveAppearance;
@end

@interface NSWindow (PlatformAppearance)
- (nullable NSAppearance *)appearance;
- (void)setAppearance:(nullable NSAppearance *)appearance;
- (NSAppearance *)effectiveAppearance;
@end

@interface NSView (PlatformAppearance)
- (nullable NSAppearance *)appearance;
- (void)setAppearance:(nullable NSAppearance *)appearance;
- (NSAppearance *)effectiveAppearance;
@end

NS_ASSUME_NONNULL_END

#endif
