#ifndef PL_DEV_AGENT_SERVICE_H
#define PL_DEV_AGENT_SERVICE_H

#import <Foundation/Foundation.h>

#include "agent/PLDevAgentMemory.h"
#include "agent/PLDevAgentOptions.h"
#import "client/AFXProvisioningService.h"

NS_ASSUME_NONNULL_BEGIN

@class PLDevAgentJournal;

/// What the agent serves to every client: answers as its options say, remembers that the customer has
/// answered, and records each request.
@interface PLDevAgentService : NSObject <AFXProvisioningService, NSXPCListenerDelegate> {
 @private
  // By pointer: not every runtime constructs the C++ members of an object.
  const PLDevAgentOptions *_options;
  PLDevAgentMemory *_memory;
  PLDevAgentJournal *_journal;
}

/// @param memory is kept by its address.
- (instancetype)initWithOptions:(const PLDevAgentOptions &)options
                         memory:(PLDevAgentMemory &)memory
                        journal:(PLDevAgentJournal *)journal NS_DESIGNATED_INITIALIZER;

- (instancetype)init NS_UNAVAILABLE;

@end

NS_ASSUME_NONNULL_END

#endif
