#import "PDMColorScheme.h"

#include <dbus/dbus.h>
#include <stdlib.h>
#include <string.h>

static const char *const kPortal = "org.freedesktop.portal.Desktop";
static const char *const kPath = "/org/freedesktop/portal/desktop";
static const char *const kSettings = "org.freedesktop.portal.Settings";
static const char *const kNamespace = "org.freedesktop.appearance";
static const char *const kKey = "color-scheme";
static const char *const kChanges =
    "type='signal',sender='org.freedesktop.portal.Desktop',"
    "interface='org.freedesktop.portal.Settings',member='SettingChanged',"
    "arg0='org.freedesktop.appearance',arg1='color-scheme'";

@interface PDMColorScheme () <RunLoopEvents>
- (void)useValue:(DBusMessageIter *)value;
@end

static void SettingRead(DBusPendingCall *call, void *scheme) {
  DBusMessage *reply = dbus_pending_call_steal_reply(call);
  DBusMessageIter value;
  if (dbus_message_get_type(reply) == DBUS_MESSAGE_TYPE_METHOD_RETURN &&
      dbus_message_iter_init(reply, &value)) {
    [(PDMColorScheme *)scheme useValue:&value];
  }
  dbus_message_unref(reply);
}

static DBusHandlerResult MessageCame(DBusConnection *connection, DBusMessage *message,
                                     void *scheme) {
  (void)connection;
  if (!dbus_message_is_signal(message, kSettings, "SettingChanged")) {
    return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
  }
  DBusMessageIter arguments;
  if (dbus_message_has_signature(message, "ssv") && dbus_message_iter_init(message, &arguments)) {
    const char *names[2];
    for (int i = 0; i < 2; i++) {
      dbus_message_iter_get_basic(&arguments, &names[i]);
      dbus_message_iter_next(&arguments);
    }
    if (strcmp(names[0], kNamespace) == 0 && strcmp(names[1], kKey) == 0) {
      [(PDMColorScheme *)scheme useValue:&arguments];
    }
  }
  return DBUS_HANDLER_RESULT_HANDLED;
}

@implementation PDMColorScheme

- (instancetype)initWithHandler:(void (^)(BOOL))handler {
  self = [super init];
  if (self == nil) {
    return nil;
  }
  // Without an address libdbus would start a bus of its own.
  if (getenv("DBUS_SESSION_BUS_ADDRESS") != NULL) {
    _connection = dbus_bus_get_private(DBUS_BUS_SESSION, NULL);
  }
  if (_connection == NULL) {
    [self release];
    return nil;
  }
  _handler = [handler copy];
  dbus_connection_set_exit_on_disconnect(_connection, FALSE);
  dbus_connection_add_filter(_connection, MessageCame, self, NULL);
  dbus_bus_add_match(_connection, kChanges, NULL);
  [self askForSetting];
  int descriptor;
  if (dbus_connection_get_unix_fd(_connection, &descriptor)) {
    [[NSRunLoop currentRunLoop] addEvent:(void *)(intptr_t)descriptor
                                    type:ET_RDESC
                                 watcher:self
                                 forMode:NSDefaultRunLoopMode];
  }
  return self;
}

- (void)dealloc {
  if (_connection != NULL) {
    int descriptor;
    if (dbus_connection_get_unix_fd(_connection, &descriptor)) {
      [[NSRunLoop currentRunLoop] removeEvent:(void *)(intptr_t)descriptor
                                         type:ET_RDESC
                                      forMode:NSDefaultRunLoopMode
                                          all:YES];
    }
    dbus_connection_remove_filter(_connection, MessageCame, self);
    dbus_connection_close(_connection);
    dbus_connection_unref(_connection);
  }
  [_handler release];
  [super dealloc];
}

- (void)askForSetting {
  DBusMessage *question = dbus_message_new_method_call(kPortal, kPath, kSettings, "Read");
  dbus_message_append_args(question, DBUS_TYPE_STRING, &kNamespace, DBUS_TYPE_STRING, &kKey,
                           DBUS_TYPE_INVALID);
  DBusPendingCall *call = NULL;
  dbus_connection_send_with_reply(_connection, question, &call, DBUS_TIMEOUT_USE_DEFAULT);
  dbus_message_unref(question);
  if (call != NULL) {
    dbus_pending_call_set_notify(call, SettingRead, self, NULL);
    dbus_pending_call_unref(call);
  }
  dbus_connection_flush(_connection);
}

/// The value comes in one variant or, from `Read`, in two.
- (void)useValue:(DBusMessageIter *)value {
  DBusMessageIter inner = *value;
  while (dbus_message_iter_get_arg_type(&inner) == DBUS_TYPE_VARIANT) {
    DBusMessageIter variant = inner;
    dbus_message_iter_recurse(&variant, &inner);
  }
  if (dbus_message_iter_get_arg_type(&inner) != DBUS_TYPE_UINT32) {
    return;
  }
  dbus_uint32_t scheme;  // 0 no preference, 1 dark, 2 light
  dbus_message_iter_get_basic(&inner, &scheme);
  _handler(scheme == 1);
}

- (void)receivedEvent:(void *)data
                 type:(RunLoopEventType)type
                extra:(void *)extra
              forMode:(NSString *)mode {
  dbus_connection_read_write(_connection, 0);
  while (dbus_connection_dispatch(_connection) == DBUS_DISPATCH_DATA_REMAINS) {
  }
  if (!dbus_connection_get_is_connected(_connection)) {
    // A descriptor at its end is readable for ever.
    [[NSRunLoop currentRunLoop] removeEvent:data type:type forMode:mode all:YES];
  }
}

@end
