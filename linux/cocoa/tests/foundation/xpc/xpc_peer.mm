// The other process of the connection tests.
//
//   xpc_peer serve NAME       Serves NAME until it is ended; says "ready" once it does.
//   xpc_peer report NAME N    Sends N events right after `resume` and ends normally.
//   xpc_peer killed NAME N    The same, but kills itself.

#import "xpc_test_server.h"

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

static int Serve(NSString *name) {
  XPCTestServer *server = [[XPCTestServer alloc] init];
  NSXPCListener *listener = [[NSXPCListener alloc] initWithMachServiceName:name];
  listener.delegate = server;
  [listener resume];
  std::puts("ready");
  std::fflush(stdout);
  dispatch_semaphore_wait(dispatch_semaphore_create(0), DISPATCH_TIME_FOREVER);
  return 0;
}

static int Report(NSString *name, unsigned count) {
  NSXPCConnection *connection = [[NSXPCConnection alloc] initWithMachServiceName:name options:0];
  connection.remoteObjectInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestEvents)];
  [connection resume];
  for (unsigned i = 0; i < count; ++i) {
    @autoreleasepool {
      [[connection remoteObjectProxy] reportEvent:[NSString stringWithFormat:@"%u", i] info:nil];
    }
  }
  return 0;
}

int main(int argc, char **argv) {
  @autoreleasepool {
    if (argc == 3 && std::strcmp(argv[1], "serve") == 0) {
      return Serve([NSString stringWithUTF8String:argv[2]]);
    }
    const bool isKilled = argc == 4 && std::strcmp(argv[1], "killed") == 0;
    if (isKilled || (argc == 4 && std::strcmp(argv[1], "report") == 0)) {
      const int status = Report([NSString stringWithUTF8String:argv[2]],
                                static_cast<unsigned>(std::atoi(argv[3])));
      if (isKilled) {
        raise(SIGKILL);
      }
      return status;
    }
  }
  std::fputs("usage: xpc_peer serve NAME | report|killed NAME N\n", stderr);
  return 2;
}
