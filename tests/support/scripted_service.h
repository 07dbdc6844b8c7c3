#ifndef TESTS_SCRIPTED_SERVICE_H
#define TESTS_SCRIPTED_SERVICE_H

#import <Foundation/Foundation.h>

#include <functional>
#include <string>
#include <vector>

#import "client/AFXServiceAccessor.h"
#include "method_swap.h"

/// What happened, in its order; a line each.
extern std::vector<std::string> sCalls;

/// Takes what has happened so far out of `sCalls`.
std::vector<std::string> TakenCalls();

std::string TextOf(NSString *string);

/// A fake proxy of the agent: records the requests and keeps their replies for the test to give.
@interface ScriptedService : NSObject <AFXProvisioningService> {
 @public
  void (^_statusReply)(BOOL, NSString *);
  void (^_updateReply)(BOOL);
  void (^_codeReply)(NSString *, NSError *);
  void (^_notesReply)(NSError *);
  /// Runs inside of the request, if there is one.
  void (^_onFetch)(void (^)(BOOL, NSString *));
}
@end

using ServiceHandler = void (^)(id<AFXProvisioningService>);
using ServiceErrorHandler = void (^)(NSError *);

/// Has accesses of the process's accessor go where the test says, while this lives.
class ScriptedAccess {
 public:
  using Access = std::function<void(ServiceHandler, ServiceErrorHandler)>;

  ScriptedAccess();
  ~ScriptedAccess();

  /// What an access does from now on.
  void operator=(Access access);

 private:
  const MethodSwap swap_;
};

#endif
