// Whether the desktop asks for dark applications.

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

/// Follows the desktop's color scheme, as the settings portal of freedesktop desktops tells it.
///
/// Main thread only. There is no way to stop it but to release it.
@interface PDMColorScheme : NSObject {
  struct DBusConnection *_connection;
  void (^_handler)(BOOL dark);
}

/// Runs `handler` on the main thread with what the desktop asks for now and after each change. Nil
/// where there is no session bus; where there is no portal on it the handler never runs.
- (nullable instancetype)initWithHandler:(void (^)(BOOL dark))handler NS_DESIGNATED_INITIALIZER;

- (instancetype)init NS_UNAVAILABLE;

@end

NS_ASSUME_NONNULL_END
