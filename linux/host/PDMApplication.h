// The application that the script runs in.

#import <AppKit/AppKit.h>
#include <uv.h>

NS_ASSUME_NONNULL_BEGIN

/// Turns AppKit's event loop in pieces, for a thread that has libuv's to run as well.
///
/// Main thread only.
@interface PDMApplication : NSObject

/// Makes `NSApp` and finishes its launch. Returns NO, with a line for the user in `error`, where
/// there is no display to draw on.
+ (BOOL)launchReturningError:(NSString *_Nullable *_Nonnull)error;

/// Looks dark from now on, or light, whatever the desktop asks for. Before the first time the
/// application does as the desktop asks.
+ (void)setDark:(BOOL)dark;

/// Handles the events and timers that are due, then waits for an event, a timer, work on the main
/// queue or anything that `loop` waits for, and handles what came. Does not turn `loop` itself.
///
/// An exception in an event handler is reported in the log and ends there.
+ (void)turnBeside:(uv_loop_t *)loop;

/// Posts what the application's parts must hear before the process ends.
+ (void)willTerminate;

@end

NS_ASSUME_NONNULL_END
