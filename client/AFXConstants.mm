#import "client/Pellmar.h"

NSString *const AFXProvisioningServiceName = @"com.pellmar.ProvisioningService";
NSString *const AFXProvisioningServiceURLsToOpenByRecoveryOptionIndexErrorKey =
    @"urls to open by recovery option index";
NSString *const AFXProvisioningServiceOmitPresentationErrorKey = @"omit presentation";
NSString *const AFXProvisioningDebugNotificationName = @"com.pellmar.debug-log-notification";
NSString *const AFXProvisioningDebugMessageKey = @"com.pellmar.debug-log-message";
NSString *const AFXProvisioningDebugAppNameKey = @"com.pellmar.debug-log-app-name";
NSString *const PLVendorAuthScopeApplicationAccess = @"application.access";

id __PLV = @"__plv__" AFX_VERSION;
