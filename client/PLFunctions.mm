#include <atomic>

#import "client/AFXConsentFlow.h"
#import "client/AFXServiceAccessor.h"
#import "client/Pellmar.h"

/// Whether a release-notes request of this process was answered without an error.
static std::atomic<bool> sReleaseNotesShown{false};

static NSError *AFXConnectionError(NSInteger code, NSString *description) {
  return [NSError errorWithDomain:NSCocoaErrorDomain
                             code:code
                         userInfo:@{NSLocalizedDescriptionKey : description}];
}

/// Hands on what the agent replied, once it is what was agreed.
static void AFXFinishWithReply(PLAuthorizationCodeCompletion finish, NSString *code,
                               NSError *error) {
  if ([error isKindOfClass:NSError.class]) {
    finish(nil, error);
  } else if ([code isKindOfClass:NSString.class]) {
    finish(code, nil);
  } else {
    finish(nil, AFXConnectionError(NSXPCConnectionReplyInvalid,
                                   @"The Pellmar agent’s reply could not be understood."));
  }
}

void PLRequestAuthorizationCode(NSString *clientID, NSArray<NSString *> *scopes,
                                PLAuthorizationCodeCompletion completion) {
  PLAuthorizationCodeCompletion finish = ^(NSString *code, NSError *error) {
    if (completion) {
      completion(code, error);
    }
  };
  [AFXSharedServiceAccessor()
      accessService:^(id<AFXProvisioningService> service) {
        if (service == nil) {
          finish(nil, AFXConnectionError(NSXPCConnectionInvalid,
                                         @"The Pellmar agent could not be reached."));
          return;
        }
        @try {
          [service provideAuthCodeWithClientID:clientID
                                         scope:scopes
                                      callback:^(NSString *code, NSError *error) {
                                        AFXFinishWithReply(finish, code, error);
                                      }];
        } @catch (NSException *) {
          // The connection raises for what cannot be sent.
          finish(nil, AFXConnectionError(NSXPCConnectionInvalid,
                                         @"The request could not be sent to the Pellmar agent."));
        }
      }
      errorHandler:^(NSError *error) {
        finish(nil, error);
      }];
}

void PLShowReleaseNotesWindowIfNeeded(void) {
  if (!sReleaseNotesShown) {
    PLShowReleaseNotesWindow();
  }
}

void PLShowReleaseNotesWindow(void) {
  [AFXSharedServiceAccessor() accessService:^(id<AFXProvisioningService> service) {
    [service showReleaseNotesForAppWithCallback:^(NSError *error) {
      if (error == nil) {
        sReleaseNotesShown = true;
      }
    }];
  }];
}

BOOL PLCanShowReleaseNotesWindow(void) { return YES; }

void PLReportUsageEvent(NSString *name, NSDictionary *info) {
  [AFXSharedServiceAccessor() reportUsageEvent:name eventInfo:info];
}

PLEmailSharingAnswer PLGetLastUserEmailSharingResponse(void) {
  return static_cast<PLEmailSharingAnswer>(AFXPublicAnswer(AFXGetPreviousCustomerChoice()));
}

BOOL PLAskUserToShareEmail(PLEmailSharingCompletion completion) {
  return AFXAskCustomerPermissions(^(AFXConsentChoice status) {
    if (completion) {
      completion(static_cast<PLEmailSharingAnswer>(AFXPublicAnswer(status)));
    }
  });
}
