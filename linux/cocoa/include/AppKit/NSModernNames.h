// Names that Apple has given to older constants since.

#ifndef PLATFORM_APPKIT_NSMODERNNAMES_H
#define PLATFORM_APPKIT_NSMODERNNAMES_H

#import <AppKit/NSButtonCell.h>
#import <AppKit/NSEvent.h>
#import <GNUstepGUI/GSVersion.h>

static const NSBezelStyle NSBezelStyleRounded = NSRoundedBezelStyle;

#if GNUSTEP_GUI_MAJOR_VERSION == 0 && GNUSTEP_GUI_MINOR_VERSION < 32
enum {
  NSEventModifierFlagCapsLock = NSAlphaShiftKeyMask,
  NSEventModifierFlagShift = NSShiftKeyMask,
  NSEventModifierFlagControl = NSControlKeyMask,
  NSEventModifierFlagOption = NSAlternateKeyMask,
  NSEventModifierFlagCommand = NSCommandKeyMask,
};
#endif

#endif
