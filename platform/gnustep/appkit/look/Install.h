// What is put into the toolkit when the application object is made.
//
// Not when the library is loaded: that happens in every process that loads the module, most of
// which never show a window, and the toolkit's classes are not initialized then.

#ifndef PLATFORM_APPKIT_LOOK_INSTALL_H
#define PLATFORM_APPKIT_LOOK_INSTALL_H

#ifdef __cplusplus
extern "C" {
#endif

/// Drawing of the layers of layer-backed views.
void PlatformInstallLayerDrawing(void);
/// Images that are drawn smaller or larger than they are.
void PlatformInstallImageInterpolation(void);
/// The application icon by its name.
void PlatformInstallImageNames(void);
/// A line in the log for objects that are deallocated while they are observed.
void PlatformInstallObservedDealloc(void);
/// Focus rings from the first use of the Tab key on.
void PlatformInstallFocusVisibility(void);
/// Title colors of push buttons, and sizes in whole points.
void PlatformInstallButtons(void);
/// No note of every window ever made.
void PlatformInstallServerOfWindow(void);

#ifdef __cplusplus
}
#endif

#endif
