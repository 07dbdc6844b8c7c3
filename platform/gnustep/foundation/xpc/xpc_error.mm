#include "xpc_error.h"

namespace platform::xpc {

NSError *MakeError(NSInteger code, NSString *service) {
  NSString *to = service ? [@" to service named " stringByAppendingString:service] : @"";
  NSString *what = @"was invalidated";
  if (code == NSXPCConnectionInterrupted) what = @"was interrupted";
  if (code == NSXPCConnectionReplyInvalid) what = @"received a reply that does not fit the block";
  NSDictionary *info = [NSDictionary
      dictionaryWithObjectsAndKeys:@"Couldn’t communicate with a helper application.",
                                   NSLocalizedDescriptionKey,
                                   [NSString stringWithFormat:@"The connection%@ %@.", to, what],
                                   @"NSDebugDescription", nil];
  return [NSError errorWithDomain:NSCocoaErrorDomain code:code userInfo:info];
}

}  // namespace platform::xpc
