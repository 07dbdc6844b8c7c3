#import "PDMApplication.h"

#import <GNUstepGUI/GSDisplayServer.h>
#include <signal.h>
#include <stdlib.h>

#import "PDMColorScheme.h"

/// GNUstep takes every argument for a document to open; here they are the script's.
@interface PDMApplicationDelegate : NSObject <NSApplicationDelegate>
@end

@implementation PDMApplicationDelegate

- (void)application:(NSApplication *)sender openFiles:(NSArray *)filenames {
}

@end

/// Its only purpose is that the run loop stops waiting: libuv reads its descriptor itself.
@interface PDMDescriptorWatcher : NSObject <RunLoopEvents>
@end

@implementation PDMDescriptorWatcher

- (void)receivedEvent:(void *)data
                 type:(RunLoopEventType)type
                extra:(void *)extra
              forMode:(NSString *)mode {
}

@end

/// The part of `run` that comes before its loop, which is replaced here. An application that does
/// not run counts as closing, and its windows stay key when they are hidden.
@interface NSApplication (PDMRunning)
- (void)pdm_startRunning;
@end

@implementation NSApplication (PDMRunning)

- (void)pdm_startRunning {
  _app_is_running = YES;
  _app_is_launched = YES;
  [self finishLaunching];
  [[NSNotificationCenter defaultCenter]
      postNotificationName:NSApplicationDidFinishLaunchingNotification
                    object:self];
}

@end

@interface GSDisplayServer (PDMQueue)
- (BOOL)pdm_hasEvents;
@end

@implementation GSDisplayServer (PDMQueue)

- (BOOL)pdm_hasEvents {
  return [event_queue count] != 0;
}

@end

static PDMDescriptorWatcher *sDescriptorWatcher;
static PDMColorScheme *sColorScheme;

/// What scripts autorelease between two turns: AppKit's own loop has a pool around everything too.
static NSAutoreleasePool *sScriptPool;

/// What keeps a desktop clear of GNUstep's own furniture.
static NSDictionary *DesktopDefaults(void) {
  return @{
    @"GSSuppressAppIcon" : @(YES),
    @"GSAppOwnsMiniwindow" : @(NO),
    // Otherwise a start maps fifteen test windows to measure the window manager's decorations.
    @"GSBackHandlesWindowDecorations" : @(NO),
  };
}

/// When `loop` has something to do at the latest: nil stands for now.
static NSDate *LimitDate(uv_loop_t *loop) {
  uv_update_time(loop);
  int milliseconds = uv_backend_timeout(loop);
  if (milliseconds == 0) {
    return nil;
  }
  if (milliseconds < 0) {
    return [NSDate distantFuture];
  }
  // The run loop waits for whole milliseconds and spins for the rest. The little more is what
  // passes until it computes that, so that there is no rest.
  return [NSDate dateWithTimeIntervalSinceNow:(milliseconds + 0.1) / 1000];
}

@implementation PDMApplication

+ (BOOL)launchReturningError:(NSString **)error {
  const char *display = getenv("DISPLAY");
  if (display == NULL || *display == '\0') {
    *error = @"there is no display: DISPLAY is not set";
    return NO;
  }
  sScriptPool = [[NSAutoreleasePool alloc] init];
  [[NSUserDefaults standardUserDefaults] registerDefaults:DesktopDefaults()];
  // GNUstep's handlers for these would run AppKit in the middle of anything.
  const int signals[] = {SIGINT, SIGTERM};
  struct sigaction before[2];
  for (int i = 0; i < 2; i++) {
    sigaction(signals[i], NULL, &before[i]);
  }
  @try {
    [NSApplication sharedApplication];
  } @catch (NSException *exception) {
    *error = [NSString stringWithFormat:@"cannot open the display '%s'", display];
    return NO;
  } @finally {
    for (int i = 0; i < 2; i++) {
      sigaction(signals[i], &before[i], NULL);
    }
  }
  // Its first use takes over SIGCHLD, which would keep libuv from hearing of its children. After
  // this libuv has the last word.
  [NSTask class];
  [NSApp setDelegate:[[PDMApplicationDelegate alloc] init]];
  @try {
    [NSApp pdm_startRunning];
  } @catch (NSException *exception) {
    [self report:exception];
  }
  sColorScheme = [[PDMColorScheme alloc] initWithHandler:^(BOOL dark) {
    [self showDark:dark];
  }];
  return YES;
}

+ (void)showDark:(BOOL)dark {
  NSString *name = dark ? NSAppearanceNameDarkAqua : NSAppearanceNameAqua;
  [NSApp setAppearance:[NSAppearance appearanceNamed:name]];
}

+ (void)setDark:(BOOL)dark {
  [sColorScheme release];
  sColorScheme = nil;
  [self showDark:dark];
}

+ (void)report:(NSException *)exception {
  NSLog(@"An exception ended an event’s handling: %@: %@", [exception name], [exception reason]);
}

+ (void)handleEvents {
  @try {
    NSEvent *event;
    while ((event = [NSApp nextEventMatchingMask:NSAnyEventMask
                                       untilDate:[NSDate distantPast]
                                          inMode:NSDefaultRunLoopMode
                                         dequeue:YES]) != nil) {
      [NSApp sendEvent:event];
    }
    [NSApp updateWindows];
  } @catch (NSException *exception) {
    [self report:exception];
  }
}

/// Timers and events that come first may run scripts, and these may start timers of libuv: it is
/// asked for its limit only when nothing else runs any more before the wait.
///
/// An event that comes while AppKit is asked for the next one, without a wait, is fetched but not
/// returned: nothing would end the wait for it.
+ (void)waitBeside:(uv_loop_t *)loop {
  NSRunLoop *runLoop = [NSRunLoop currentRunLoop];
  @try {
    NSDate *limit = [runLoop limitDateForMode:NSDefaultRunLoopMode];
    if ([GSCurrentServer() pdm_hasEvents]) {
      return;
    }
    NSDate *loopLimit = LimitDate(loop);
    if (loopLimit == nil || limit == nil) {
      limit = loopLimit;
    } else {
      limit = [limit earlierDate:loopLimit];
    }
    [runLoop acceptInputForMode:NSDefaultRunLoopMode beforeDate:limit];
  } @catch (NSException *exception) {
    [self report:exception];
  }
}

+ (void)turnBeside:(uv_loop_t *)loop {
  [sScriptPool drain];
  @autoreleasepool {
    if (sDescriptorWatcher == nil) {
      sDescriptorWatcher = [[PDMDescriptorWatcher alloc] init];
      [[NSRunLoop currentRunLoop] addEvent:(void *)(intptr_t)uv_backend_fd(loop)
                                      type:ET_RDESC
                                   watcher:sDescriptorWatcher
                                   forMode:NSDefaultRunLoopMode];
    }
    [self handleEvents];
    [self waitBeside:loop];
    [self handleEvents];
  }
  sScriptPool = [[NSAutoreleasePool alloc] init];
}

+ (void)willTerminate {
  [[NSNotificationCenter defaultCenter] postNotificationName:NSApplicationWillTerminateNotification
                                                      object:NSApp];
}

@end
