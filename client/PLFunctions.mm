#include <atomic>

#import "client/AFXConsentFlow.h"
#import "client/AFXServiceAccessor.h"
#import "client/AFXUsageReporter.h"
#import "client/Pellmar.h"

/// Whether a release-notes request of this process was answered without an error.
static std::atomic<bool> sReleaseNotesShown{false};

static NSError *__AFXConnectionError(NSInteger code, NSString *description) {
  return [NSError errorWithDomain:NSCocoaErrorDomain
                             code:code
                         userInfo:@{NSLocalizedDescriptionKey : description}];
}

static BOOL __AFXIsNilOrOfClass(id object, Class expected) {
  return object == nil || [object isKindOfClass:expected];
}

void PLRequestAuthorizationCode(NSString *clientID, NSArray<NSString *> *scopes,
                                PLAuthorizationCodeCompletion completion) {
  // Not on the connection's queue: an e-mail function called inside the completion would wait there
  // for a reply that only this queue can bring.
  PLAuthorizationCodeCompletion finish = ^(NSString *code, NSError *error) {
    if (completion) {
      dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), ^{
        completion(code, error);
      });
    }
  };
  // Its copy holds the arguments for the length of the call.
  AFXServiceHandler request = [^(id<AFXProvisioningService> service) {
    if (service == nil) {
      finish(nil, __AFXConnectionError(NSXPCConnectionInvalid,
                                       @"The Pellmar agent could not be reached."));
      return;
    }
    @try {
      [service
          provideAuthCodeWithClientID:clientID
                                scope:scopes
                             callback:^(NSString *code, NSError *error) {
                               if (__AFXIsNilOrOfClass(code, NSString.class) &&
                                   __AFXIsNilOrOfClass(error, NSError.class)) {
                                 finish(code, error);
                                 return;
                               }
                               finish(nil,
                                      __AFXConnectionError(
                                          NSXPCConnectionReplyInvalid,
                                          @"The Pellmar agent’s reply could not be understood."));
                             }];
    } @catch (NSException *) {
      // The connection raises for what cannot be sent.
      finish(nil, __AFXConnectionError(NSXPCConnectionInvalid,
                                       @"The request could not be sent to the Pellmar agent."));
    }
  } copy];
  [__AFXSharedServiceAccessor() accessService:request
                                 errorHandler:^(NSError *error) {
                                   finish(nil, error);
                                 }];
  [request release];
}

void PLShowReleaseNotesWindowIfNeeded(void) {
  if (!sReleaseNotesShown) {
    PLShowReleaseNotesWindow();
  }
}

void PLShowReleaseNotesWindow(void) {
  [__AFXSharedServiceAccessor() accessService:^(id<AFXProvisioningService> service) {
    [service showReleaseNotesForAppWithCallback:^(NSError *error) {
      if (error == nil) {
        sReleaseNotesShown = true;
      }
    }];
  }];
}

BOOL PLCanShowReleaseNotesWindow(void) { return YES; }

void PLReportUsageEvent(NSString *name, NSDictionary *info) {
  [name retain];
  [info retain];
  [__AFXSharedUsageReporter() reportUsageEvent:name eventInfo:info];
  [info release];
  [name release];
}

PLEmailSharingAnswer PLGetLastUserEmailSharingResponse(void) {
  return static_cast<PLEmailSharingAnswer>(__AFXPublicAnswer(AFXGetPreviousCustomerChoice()));
}

BOOL PLAskUserToShareEmail(PLEmailSharingCompletion completion) {
  // Its copy holds the caller's block, which another thread may release while this one waits.
  void (^wrapper)(AFXConsentChoice) = [^(AFXConsentChoice status) {
    if (completion) {
      completion(static_cast<PLEmailSharingAnswer>(__AFXPublicAnswer(status)));
    }
  } copy];
  const BOOL isAsking = AFXAskCustomerPermissions(wrapper);
  [wrapper release];
  return isAsking;
}
