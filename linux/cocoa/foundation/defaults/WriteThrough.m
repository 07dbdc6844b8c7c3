// Changed user defaults are on disk at once, as they are with the system's own preferences service.
// GNUstep keeps them in memory until it is told to write, and an application that is killed before
// would have forgotten them.

#import <Foundation/NSNotification.h>
#import <Foundation/NSUserDefaults.h>

@interface PlatformDefaultsWriteThrough : NSObject
@end

@implementation PlatformDefaultsWriteThrough

+ (void)load {
  [[NSNotificationCenter defaultCenter] addObserver:self
                                           selector:@selector(defaultsDidChange:)
                                               name:NSUserDefaultsDidChangeNotification
                                             object:nil];
}

+ (void)defaultsDidChange:(NSNotification *)notification {
  [[notification object] synchronize];
}

@end
