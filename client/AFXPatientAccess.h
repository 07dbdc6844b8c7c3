#ifndef AFX_PATIENT_ACCESS_H
#define AFX_PATIENT_ACCESS_H

#import "client/AFXServiceAccessor.h"

NS_ASSUME_NONNULL_BEGIN

/// As the accessor's `accessService:`, for what must not be lost while the agent is only
/// restarting: an agent that is missing gets a little more than a second to come back before
/// `handler` gets nil. `handler` is called exactly once: before this returns where the connection
/// is known to work, else later on a queue of the connection or on a global queue. Any thread;
/// never blocks.
///
/// What waits here ends with the process.
void AFXAccessServicePatiently(AFXServiceHandler handler);

NS_ASSUME_NONNULL_END

#endif
