// GNUstep prepares the mouse while it reads the first click, and asks the notification daemon for
// it. While it waits for the answer it reads on: a quick release is taken for older than its press,
// and the click is lost. So the mouse is prepared before there is a window to click.

#import <AppKit/AppKit.h>
#import <GNUstepGUI/GSDisplayServer.h>

@interface GSDisplayServer (PlatformFirstClick)
- (void)initializeMouse;
@end

@interface PlatformFirstClick : NSObject
@end

@implementation PlatformFirstClick

+ (void)load {
  [[NSNotificationCenter defaultCenter] addObserver:self
                                           selector:@selector(applicationWillFinishLaunching:)
                                               name:NSApplicationWillFinishLaunchingNotification
                                             object:nil];
}

+ (void)applicationWillFinishLaunching:(NSNotification *)notification {
  GSDisplayServer *server = GSCurrentServer();
  if (![server respondsToSelector:@selector(initializeMouse)]) return;
  @try {
    [server initializeMouse];
  } @catch (NSException *exception) {
    // No daemon: the mouse works, and only does not hear of changed settings.
  }
}

@end
