#ifndef AFX_CONSENT_FLOW_H
#define AFX_CONSENT_FLOW_H

#import <Foundation/Foundation.h>

#include "client/AFXConsentStatus.h"

NS_ASSUME_NONNULL_BEGIN

/// The consent status: asks the agent and blocks the caller until it replies, two seconds at the
/// most. `AFXConsentStatusUnknown` when no reply came. Any thread but the connection's own queue.
AFXConsentChoice AFXGetPreviousCustomerChoice(void);

/// Asks the customer in a window, unless an answer is on record or the agent cannot be asked. Any
/// thread but the connection's own queue; blocks as `AFXGetPreviousCustomerChoice` does.
///
/// @param completion may be nil; takes a consent status. Runs at once on the calling thread when
///   the customer is not asked, else on the main thread. Only the call that brought the window up
///   gets its answer.
/// @return YES when the window is going to be shown; NO when `completion` has already run.
BOOL AFXAskCustomerPermissions(void (^_Nullable completion)(AFXConsentChoice status));

NS_ASSUME_NONNULL_END

#endif
