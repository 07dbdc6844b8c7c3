//
// The Pellmar client's public interface: plain functions that an application calls, and the
// constant strings that it shares with the Pellmar agent.
//
// The agent is a separate process on the same machine. Every function here can be called whether
// it runs or not: none raises an exception, and none but the two e-mail functions waits for it.
//

#ifndef PELLMAR_H
#define PELLMAR_H

#import <Foundation/Foundation.h>

#ifdef __cplusplus
#define PL_EXPORT extern "C" __attribute__((visibility("default")))
#else
#define PL_EXPORT extern __attribute__((visibility("default")))
#endif

NS_ASSUME_NONNULL_BEGIN

/// What is known of the customer's answer to the question whether the e-mail address may be shared.
typedef NS_ENUM(NSInteger, PLEmailSharingAnswer) {
  /// The customer has not been asked, or the agent could not be reached within two seconds.
  PLEmailSharingAnswerUnknown = 0,
  /// The customer has answered. Whether with yes or with no is between the customer and the agent.
  PLEmailSharingAnswerGiven = 1,
  /// The customer chose to be asked later.
  PLEmailSharingAnswerPostponed = 2,
};

/// Receives the outcome of `PLRequestAuthorizationCode`. `error` is nil on success. What the agent
/// replied is handed on as it is: look at the error first, and do not rely on a code without one.
typedef void (^PLAuthorizationCodeCompletion)(NSString *_Nullable code, NSError *_Nullable error);

/// Receives the answer of `PLAskUserToShareEmail`.
typedef void (^PLEmailSharingCompletion)(PLEmailSharingAnswer answer);

#pragma mark - Constants

/// "com.pellmar.ProvisioningService": the Mach service under which the agent listens.
PL_EXPORT NSString *const AFXProvisioningServiceName;

/// User-info key of an error from the agent: the URLs to open for its recovery options, in the
/// order of the options' indices.
PL_EXPORT NSString *const AFXProvisioningServiceURLsToOpenByRecoveryOptionIndexErrorKey;

/// User-info key of an error from the agent: its presence says that the error is not to be
/// presented to the customer.
PL_EXPORT NSString *const AFXProvisioningServiceOmitPresentationErrorKey;

/// Name of the distributed notification that carries one debug message of the agent. Its object is
/// the receiving process's identifier in decimal.
PL_EXPORT NSString *const AFXProvisioningDebugNotificationName;

/// User-info key of a debug notification: the message.
PL_EXPORT NSString *const AFXProvisioningDebugMessageKey;

/// User-info key of a debug notification: the name of the application that sent it.
PL_EXPORT NSString *const AFXProvisioningDebugAppNameKey;

/// "application.access": a scope for `PLRequestAuthorizationCode`.
PL_EXPORT NSString *const PLVendorAuthScopeApplicationAccess;

/// The library's name prefix and version joined, so that the version of a built file can be told
/// by this symbol.
PL_EXPORT id __PLV;

#pragma mark - Functions

/// Asks the agent for an authorization code that the application's own back end can redeem.
///
/// Any thread; returns at once. `completion` is copied and runs exactly once, on a global queue; it
/// may call every function here. It gets what the agent replied, or an error in
/// `NSCocoaErrorDomain` with a localized description: `NSXPCConnectionInvalid` (4099) when the
/// agent is not there or has not got ready to serve within eight seconds,
/// `NSXPCConnectionInterrupted` (4097) when it went away before it answered,
/// `NSXPCConnectionReplyInvalid` (4101) when its reply was of another class. An agent that serves
/// and neither answers nor ends keeps the completion waiting, since it may be asking the customer.
/// What is in the user info of the agent's own error is not checked.
///
/// @param clientID the identifier under which the application is registered.
/// @param scopes scope strings such as `PLVendorAuthScopeApplicationAccess`.
PL_EXPORT void PLRequestAuthorizationCode(NSString *clientID, NSArray<NSString *> *scopes,
                                          PLAuthorizationCodeCompletion _Nullable completion);

/// Has the agent present the application's release notes unless a request of this process was
/// answered without an error already. Any thread; returns at once. Without an agent nothing
/// happens, and the next call asks again.
PL_EXPORT void PLShowReleaseNotesWindowIfNeeded(void);

/// Has the agent present the application's release notes, each time it is called. Any thread;
/// returns at once. Without an agent nothing happens.
PL_EXPORT void PLShowReleaseNotesWindow(void);

/// Whether `PLShowReleaseNotesWindow` is of use: always YES. Asks nobody; any thread.
PL_EXPORT BOOL PLCanShowReleaseNotesWindow(void);

/// Reports that something of interest happened in the application.
///
/// Any thread; never waits for the agent. Events of one thread reach the agent in the order of the
/// calls. They are dropped while there is no agent, and the newest of them beyond 4,096 that an
/// agent has not taken yet. One that is reported just before the process ends may be lost.
///
/// @param name the event's name.
/// @param info more about the event: strings, numbers, arrays and dictionaries; may be nil.
PL_EXPORT void PLReportUsageEvent(NSString *name, NSDictionary *_Nullable info);

/// What is known of the customer's answer. Any thread; asks the agent and blocks the caller until
/// it replies, two seconds at the most. `PLEmailSharingAnswerUnknown` without an agent, and at once
/// for an agent that did not answer an earlier call in time, until something is heard of it.
PL_EXPORT PLEmailSharingAnswer PLGetLastUserEmailSharingResponse(void);

/// Asks the customer in a window whether the e-mail address may be shared, if the agent wants the
/// customer to be asked. Any thread; blocks the caller until the agent replies, two seconds at the
/// most.
///
/// @param completion may be nil. Runs at once on the calling thread when the customer is not asked,
///   else on the main thread when the customer has answered. While a window is up, a further call
///   only brings it to the front, and its completion is never called.
/// @return YES when the window is going to be shown; NO when `completion` has already run.
PL_EXPORT BOOL PLAskUserToShareEmail(PLEmailSharingCompletion _Nullable completion);

/// Starts or stops copying the agent's debug messages for this process to the process's log.
///
/// Main thread only. A message comes from another process: its text is not to be trusted.
///
/// @param enable any non-zero value starts; a value whose lowest bit is clear stops.
PL_EXPORT void PLEnableDebugLogging(BOOL enable);

NS_ASSUME_NONNULL_END

#endif
