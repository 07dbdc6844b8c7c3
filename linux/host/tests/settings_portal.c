// The settings portal of a desktop, for tests: it has the color scheme and nothing else. Each
// number on a line of standard input becomes the scheme, and everybody hears of it.

#include <dbus/dbus.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static const char *const kInterface = "org.freedesktop.portal.Settings";
static const char *const kPath = "/org/freedesktop/portal/desktop";
static dbus_uint32_t sScheme;

/// Appends the scheme in as many variants, one in another.
static void AppendScheme(DBusMessageIter *to, int variants) {
  if (variants == 0) {
    dbus_message_iter_append_basic(to, DBUS_TYPE_UINT32, &sScheme);
    return;
  }
  DBusMessageIter inner;
  dbus_message_iter_open_container(to, DBUS_TYPE_VARIANT, variants > 1 ? "v" : "u", &inner);
  AppendScheme(&inner, variants - 1);
  dbus_message_iter_close_container(to, &inner);
}

static void SendAndForget(DBusConnection *connection, DBusMessage *message) {
  dbus_connection_send(connection, message, NULL);
  dbus_connection_flush(connection);
  dbus_message_unref(message);
}

static DBusHandlerResult Answer(DBusConnection *connection, DBusMessage *message, void *data) {
  (void)data;
  if (!dbus_message_is_method_call(message, kInterface, "Read")) {
    return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
  }
  DBusMessage *reply = dbus_message_new_method_return(message);
  DBusMessageIter arguments;
  dbus_message_iter_init_append(reply, &arguments);
  AppendScheme(&arguments, 2);
  SendAndForget(connection, reply);
  return DBUS_HANDLER_RESULT_HANDLED;
}

static void Announce(DBusConnection *connection) {
  const char *names[] = {"org.freedesktop.appearance", "color-scheme"};
  DBusMessage *signal = dbus_message_new_signal(kPath, kInterface, "SettingChanged");
  DBusMessageIter arguments;
  dbus_message_iter_init_append(signal, &arguments);
  for (int i = 0; i < 2; i++) {
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &names[i]);
  }
  AppendScheme(&arguments, 1);
  SendAndForget(connection, signal);
}

int main(void) {
  setvbuf(stdin, NULL, _IONBF, 0);
  DBusConnection *connection = dbus_bus_get(DBUS_BUS_SESSION, NULL);
  const DBusObjectPathVTable functions = {.message_function = Answer};
  if (connection == NULL ||
      !dbus_connection_register_object_path(connection, kPath, &functions, NULL) ||
      dbus_bus_request_name(connection, "org.freedesktop.portal.Desktop", 0, NULL) < 0) {
    return EXIT_FAILURE;
  }
  puts("ready");
  fflush(stdout);
  struct pollfd sources[2] = {{.fd = STDIN_FILENO, .events = POLLIN}, {.events = POLLIN}};
  dbus_connection_get_unix_fd(connection, &sources[1].fd);
  for (;;) {
    while (dbus_connection_dispatch(connection) == DBUS_DISPATCH_DATA_REMAINS) {
    }
    poll(sources, 2, -1);
    if (sources[0].revents != 0) {
      char line[16];
      if (fgets(line, sizeof(line), stdin) == NULL) {
        return EXIT_SUCCESS;
      }
      sScheme = (dbus_uint32_t)strtoul(line, NULL, 10);
      Announce(connection);
    }
    if (sources[1].revents != 0 && !dbus_connection_read_write(connection, 0)) {
      return EXIT_FAILURE;
    }
  }
}
