// The toolkit's theme that draws controls as a Mac does.

#ifndef PLATFORM_APPKIT_LOOK_AQUATHEME_H
#define PLATFORM_APPKIT_LOOK_AQUATHEME_H

#import <GNUstepGUI/GSTheme.h>

/// Made in memory and put in place when the application object is made: nothing is read from or
/// written to the user's defaults, and a theme chosen there does not replace it.
@interface PlatformAquaTheme : GSTheme

/// Puts it in the place of the theme there is.
+ (void)install;

@end

#endif
