#import <Foundation/PlatformReplyTypes.h>

#import "client/AFXProvisioningService.h"

/// Says what the agent's reply blocks take, which a Mac's compiler writes into the protocol.
@interface PLReplyTypes : NSObject
@end

@implementation PLReplyTypes

+ (void)load {
  @autoreleasepool {
    id<AFXProvisioningService> service = [[NSXPCInterface
        interfaceWithProtocol:@protocol(AFXProvisioningService)] replyTypesRecorder];
    const PlatformAnyArgument any;
    [service checkConnectionWithCallback:any];
    [service fetchAskingPermissionStatus:any];
    [service updateAllowedCustomerEmail:any callback:any];
    [service showReleaseNotesForAppWithCallback:any];
    [service xpcAPIVersionWithCallback:any];
    [service provideAuthCodeWithClientID:any scope:any callback:any];
  }
}

@end
