// GNUstep's AppKit, and what Apple's has besides.

#ifndef PLATFORM_APPKIT_H
#define PLATFORM_APPKIT_H

#include <Foundation/Foundation.h>

#include_next <AppKit/AppKit.h>

#include <AppKit/NSActivationPolicy.h>
#include <AppKit/NSAppearanceCustomization.h>
#include <AppKit/NSColorSpaces.h>
#include <AppKit/NSFontWeight.h>
#include <AppKit/NSImageNames.h>
#include <AppKit/NSModernNames.h>
#include <AppKit/NSViewAccessibility.h>
#include <AppKit/NSViewLayer.h>

#include <AppKit/NSViewLayout.h>

#include <QuartzCore/QuartzCore.h>

#endif
