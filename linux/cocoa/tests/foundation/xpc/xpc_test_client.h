// A client connection, and what its requests came to.

#ifndef XPC_TEST_CLIENT_H
#define XPC_TEST_CLIENT_H

#include <atomic>
#include <memory>

#import "xpc_test_protocol.h"
#include "xpc_test_support.h"

namespace xpc_test {

/// What one request came to. Must outlive the request, as must a `Client` its connection's
/// handlers.
struct Outcome {
  Counter ended;
  std::atomic<unsigned> replies{0};
  std::atomic<unsigned> errors{0};
  std::atomic<long> code{0};
  std::atomic<bool> flag{false};

  void reply(BOOL value) {
    flag = value;
    ++replies;
    ended.add();
  }
  void fail(NSError *error) {
    code = [[error domain] isEqual:NSCocoaErrorDomain] ? static_cast<long>([error code]) : -1;
    ++errors;
    ended.add();
  }
  void (^onError())(NSError *) {
    return [[^(NSError *error) {
      this->fail(error);
    } copy] autorelease];
  }
  void (^onFlag())(BOOL) {
    return [[^(BOOL value) {
      this->reply(value);
    } copy] autorelease];
  }
  void (^onObject())(id) {
    return [[^(id object) {
      this->reply(object != nil);
    } copy] autorelease];
  }
};

class Client {
 public:
  /// A connection to `service` that has been resumed.
  explicit Client(NSString *service)
      : Client([[[NSXPCConnection alloc] initWithMachServiceName:service options:0] autorelease]) {}

  explicit Client(NSXPCConnection *fresh) : connection_([fresh retain]) {
    fresh.remoteObjectInterface =
        [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestFutureService)];
    fresh.interruptionHandler = ^{
      interrupted.add();
    };
    fresh.invalidationHandler = ^{
      invalidated.add();
    };
    [fresh resume];
  }

  /// Waits until the handlers can run no more.
  ~Client() {
    [connection_ invalidate];
    [connection_ release];
    invalidated.wait();
  }

  NSXPCConnection *connection() { return connection_; }
  id<XPCTestFutureService> proxy(Outcome *outcome) {
    return [connection_ remoteObjectProxyWithErrorHandler:outcome->onError()];
  }
  id<XPCTestFutureService> proxy() { return [connection_ remoteObjectProxy]; }

  /// Waits until the connection's queue has done with what it was at: GNUstep counts references
  /// with instructions that ThreadSanitizer does not see, so that an object must not lose its last
  /// one there while a test still looks at it.
  void passQueue() { roundTrip(nil); }

  /// Sends `object` and returns what comes back, or an error.
  id echo(id object) {
    id result = roundTrip(object);
    passQueue();
    return result;
  }

  Counter interrupted;
  Counter invalidated;

 private:
  id roundTrip(id object) {
    __block id result = nil;
    Counter done;
    Counter *ended = &done;
    id<XPCTestService> proxy = [connection_ remoteObjectProxyWithErrorHandler:^(NSError *error) {
      result = [error retain];
      ended->add();
    }];
    [proxy echo:object
          reply:^(id answer) {
            result = [answer retain];
            ended->add();
          }];
    if (!done.wait()) {
      abort();
    }
    return [result autorelease];
  }

  NSXPCConnection *connection_;
};

}  // namespace xpc_test

#endif
