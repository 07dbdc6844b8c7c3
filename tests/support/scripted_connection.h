#ifndef TESTS_SCRIPTED_CONNECTION_H
#define TESTS_SCRIPTED_CONNECTION_H

#import <Foundation/Foundation.h>

#include <string>
#include <vector>

#import "client/AFXProvisioningService.h"
#include "method_swap.h"

/// A fake connection to the agent: records what is asked of it, and does what the test says.
@interface ScriptedConnection : NSObject {
 @public
  NSUInteger _number;       ///< The first connection of a test is 1.
  NSMutableArray *_checks;  ///< The callbacks of the checks that wait for their reply.
  NSMutableArray *_errorHandlers;
  void (^_onEvent)(void);  ///< Runs inside of the sending of an event, if there is one.
 @private
  NSXPCInterface *_remoteObjectInterface;
  void (^_interruptionHandler)(void);
  void (^_invalidationHandler)(void);
}
@property (retain) NSXPCInterface *remoteObjectInterface;
@property (copy) void (^interruptionHandler)(void);
@property (copy) void (^invalidationHandler)(void);

/// Replies to the oldest check.
- (void)replyToCheck:(BOOL)isReady;

/// Fails everything that was sent, as when the agent goes.
- (void)fail;
@end

/// Has every connection to a Mach service be a scripted one, while this lives.
class ScriptedConnections {
 public:
  ScriptedConnections();
  ~ScriptedConnections();

  /// Those that were made, in their order. Retained until this goes or forgets them.
  static NSArray<ScriptedConnection *> *made();
  static ScriptedConnection *last() { return made().lastObject; }

  /// Leaves those that were made to whoever else holds them; the next one is 1 again.
  static void forget();

  /// What was asked of connections since the last call, in its order.
  static std::vector<std::string> taken();

 private:
  const MethodSwap swap_;
};

#endif
