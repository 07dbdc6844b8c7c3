#ifndef PL_DEV_AGENT_SERVICE_H
#define PL_DEV_AGENT_SERVICE_H

#import <Foundation/Foundation.h>

#include "agent/PLDevAgentOptions.h"
#import "client/AFXProvisioningService.h"

NS_ASSUME_NONNULL_BEGIN

@class PLDevAgentJournal;

/// What the agent serves to every client: answers as its options say and records each request.
@interface PLDevAgentService : NSObject <AFXProvisioningService, NSXPCListenerDelegate> {
 @private
  // By pointer: not every runtime constructs the C++ members of an object.
  const PLDevAgentOptions *_options;
  PLDevAgentJournal *_journal;
}

- (instancetype)initWithOptions:(const PLDevAgentOptions &)options
                        journal:(PLDevAgentJournal *)journal NS_DESIGNATED_INITIALIZER;

- (instancetype)init NS_UNAVAILABLE;

@end

NS_ASSUME_NONNULL_END

#endif
