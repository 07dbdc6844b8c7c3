//
// The other end of the benchmarks: an agent that does nothing but answer, and the bare sockets that
// it is measured against.
//
//   bench_peer FOLDER [--should-ask]
//
// serves the agent's name and, in FOLDER, the sockets "ping" and "count". Prints one line once all
// three can be reached, and ends when its standard input does.
//

#import <Foundation/Foundation.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "bench/ping_pong.h"
#import "client/AFXProvisioningService.h"
#import "client/Pellmar.h"

/// Answers at once and keeps nothing.
@interface BenchService : NSObject <AFXProvisioningService, NSXPCListenerDelegate> {
 @private
  BOOL _shouldAsk;
}
@end

@implementation BenchService

- (instancetype)initWithShouldAsk:(BOOL)shouldAsk {
  self = [super init];
  if (self) {
    _shouldAsk = shouldAsk;
  }
  return self;
}

- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection {
  connection.exportedInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(AFXProvisioningService)];
  connection.exportedObject = self;
  [connection resume];
  return YES;
}

- (void)checkConnectionWithCallback:(void (^)(BOOL))callback {
  callback(YES);
}

- (void)reportUsageEvent:(NSString *)event eventInfo:(NSDictionary *)eventInfo {
}

- (void)fetchAskingPermissionStatus:(void (^)(BOOL, NSString *))callback {
  callback(_shouldAsk, @"customer@example.com");
}

- (void)updateAllowedCustomerEmail:(NSString *)email callback:(void (^)(BOOL))callback {
  callback(YES);
}

- (void)showReleaseNotesForAppWithCallback:(void (^)(NSError *))callback {
  callback(nil);
}

- (void)xpcAPIVersionWithCallback:(void (^)(NSString *, NSError *))callback {
  callback(@"1.0", nil);
}

- (void)provideAuthCodeWithClientID:(NSString *)clientID
                              scope:(NSArray<NSString *> *)scope
                           callback:(void (^)(NSString *, NSError *))callback {
  callback(@"code", nil);
}

@end

int main(int argc, char *argv[]) {
  @autoreleasepool {
    if (argc < 2) {
      fprintf(stderr, "usage: bench_peer FOLDER [--should-ask]\n");
      return 2;
    }
    const std::string folder = argv[1];
    const BOOL shouldAsk = argc > 2 && strcmp(argv[2], "--should-ask") == 0;
    BenchService *service = [[BenchService alloc] initWithShouldAsk:shouldAsk];
    NSXPCListener *listener =
        [[NSXPCListener alloc] initWithMachServiceName:AFXProvisioningServiceName];
    listener.delegate = service;
    [listener resume];
    ServeOn(folder + "/ping", ServePings);
    ServeOn(folder + "/count", ServeCounts);
    puts("ready");
    fflush(stdout);
    char unused;
    while (read(STDIN_FILENO, &unused, 1) > 0) {
    }
    [listener invalidate];
    [listener release];
    [service release];
  }
  return 0;
}
