//
// The agent's remote interface. Every method returns nothing; results come back as the arguments of
// a reply block, which runs on a queue of the connection.
//

#ifndef AFX_PROVISIONING_SERVICE_H
#define AFX_PROVISIONING_SERVICE_H

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@protocol AFXConnectionChecker <NSObject>
/// Replies YES when the agent is ready to serve.
- (void)checkConnectionWithCallback:(void (^)(BOOL isReady))callback;
@end

@protocol AFXUsageReportingService <NSObject>
/// Records a usage event of the application. There is no reply.
- (void)reportUsageEvent:(NSString *)event eventInfo:(nullable NSDictionary *)eventInfo;
@end

@protocol AFXCustomerPermissionsService <NSObject>
/// Replies whether the customer is to be asked for consent, and the customer's address.
- (void)fetchAskingPermissionStatus:(void (^)(BOOL shouldAsk,
                                              NSString *_Nullable customerEmail))callback;
/// Records the address that the customer allowed to be shared, or nil for a refusal.
- (void)updateAllowedCustomerEmail:(nullable NSString *)email
                          callback:(void (^)(BOOL isUpdated))callback;
@end

@protocol AFXAppReleaseNotesPresenter <NSObject>
/// Presents the application's release notes.
- (void)showReleaseNotesForAppWithCallback:(void (^)(NSError *_Nullable error))callback;
@end

@protocol AFXAPIVersioning <NSObject>
/// Replies the version of this interface that the agent serves.
- (void)xpcAPIVersionWithCallback:(void (^)(NSString *_Nullable version,
                                            NSError *_Nullable error))callback;
@end

@protocol AFXVendorAuthCodeProvider <NSObject>
/// Replies an authorization code for the registered client and the scopes.
- (void)provideAuthCodeWithClientID:(NSString *)clientID
                              scope:(NSArray<NSString *> *)scope
                           callback:(void (^)(NSString *_Nullable code,
                                              NSError *_Nullable error))callback;
@end

/// All that the agent serves: the type of the remote proxy.
@protocol AFXProvisioningService <AFXConnectionChecker,
                                  AFXUsageReportingService,
                                  AFXCustomerPermissionsService,
                                  AFXAppReleaseNotesPresenter,
                                  AFXAPIVersioning,
                                  AFXVendorAuthCodeProvider>
@end

NS_ASSUME_NONNULL_END

#endif
