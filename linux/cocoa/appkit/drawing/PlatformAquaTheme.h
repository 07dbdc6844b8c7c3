// A GNUstep theme that draws controls as a Mac does.

#ifndef PLATFORM_AQUA_THEME_H
#define PLATFORM_AQUA_THEME_H

#import <GNUstepGUI/GSTheme.h>

/// Made in memory and put in place when the application object is made: nothing is read from or
/// written to the user's defaults, and a theme chosen there does not replace it.
@interface PlatformAquaTheme : GSTheme

@end

#endif
