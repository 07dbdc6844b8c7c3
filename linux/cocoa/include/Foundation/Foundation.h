// GNUstep's Foundation, and what Apple's has besides.

#ifndef PLATFORM_FOUNDATION_H
#define PLATFORM_FOUNDATION_H

#include_next <Foundation/Foundation.h>

// GNUstep's expands to nothing, and the compiler then asks for the method that is not to be.
#undef NS_UNAVAILABLE
#define NS_UNAVAILABLE UNAVAILABLE_ATTRIBUTE

#include <Block.h>
#include <CoreFoundation/CoreFoundation.h>
#include <Foundation/NSOperatingSystemVersion.h>
#include <dispatch/dispatch.h>

#endif
