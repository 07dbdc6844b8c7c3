// A service for the tests, in this process or another.

#ifndef XPC_TEST_SERVER_H
#define XPC_TEST_SERVER_H

#import "xpc_test_protocol.h"

/// Accepts every connection and answers as the protocol says.
@interface XPCTestServer : NSObject <NSXPCListenerDelegate, XPCTestService> {
  NSMutableArray *_events;
  NSMutableArray *_kept;
  BOOL _refuses;
}

/// Refuses all connections from now on.
@property BOOL refuses;

/// The names of all events so far.
- (NSArray *)events;

@end

#endif
