#import "client/AFXConsentFlow.h"

#import "client/AFXCustomerPersonals.h"
#import "client/AFXServiceAccessor.h"
#import "ui/AFXPermissionWindowController.h"

static const int64_t sReplyTimeout = 2 * NSEC_PER_SEC;

/// Set once the customer chose to be asked later, in the application's own defaults; never unset.
static NSString *const sAskLaterDefaultsKey = @"ShouldAskForPermissionLater";

static AFXCustomerPersonals sCustomerPersonals;

static bool __AFXHasPostponed() {
  return [NSUserDefaults.standardUserDefaults boolForKey:sAskLaterDefaultsKey] != NO;
}

AFXConsentChoice AFXGetPreviousCustomerChoice(void) {
  sCustomerPersonals.setStatus(AFXConsentStatusUnknown);

  dispatch_group_t group = dispatch_group_create();
  dispatch_group_enter(group);
  // The request holds a reference of its own, given up where the group is left: a group that is
  // released while it is entered aborts the process. Its reply and its failure come one after the
  // other on the connection's queue, if both should ever come.
  dispatch_retain(group);
  __block BOOL isWaiting = YES;
  void (^finish)(void) = ^{
    if (isWaiting) {
      isWaiting = NO;
      dispatch_group_leave(group);
      dispatch_release(group);
    }
  };

  [__AFXSharedServiceAccessor()
      accessService:^(id<AFXProvisioningService> service) {
        if (service == nil) {
          finish();
          return;
        }
        [service fetchAskingPermissionStatus:^(BOOL shouldAsk, NSString *customerEmail) {
          sCustomerPersonals.setStatus(__AFXConsentStatusForReply(shouldAsk, __AFXHasPostponed));
          // An address of the wrong class is worth no more than none.
          sCustomerPersonals.setEmail([customerEmail isKindOfClass:NSString.class] ? customerEmail
                                                                                   : nil);
          finish();
        }];
      }
      errorHandler:^(NSError *) {
        finish();
      }];

  dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, sReplyTimeout));
  dispatch_release(group);
  return sCustomerPersonals.status();
}

/// Puts the window's answer on record: a postponement in the defaults, the rest with the agent.
static void __AFXRecordAnswer(AFXConsentChoice answer, NSString *email) {
  sCustomerPersonals.setEmail(email);
  if (answer == AFXConsentChoiceAskLater) {
    [NSUserDefaults.standardUserDefaults setBool:YES forKey:sAskLaterDefaultsKey];
    return;
  }
  // What the window handed over, not what is shared: by the time this runs, the reply to another
  // question may have put the customer's address in the place of a refusal.
  [__AFXSharedServiceAccessor() accessService:^(id<AFXProvisioningService> service) {
    [service updateAllowedCustomerEmail:email
                               callback:^(BOOL){
                               }];
  }];
}

BOOL AFXAskCustomerPermissions(void (^completion)(AFXConsentChoice)) {
  const AFXConsentChoice status = AFXGetPreviousCustomerChoice();
  if (status == AFXConsentStatusUnknown || status == AFXConsentStatusAnswered) {
    if (completion) {
      completion(status);
    }
    return NO;
  }

  // For a window that comes up after a refusal in the one before, which empties what is shared.
  NSString *reported = sCustomerPersonals.email();
  dispatch_async(dispatch_get_main_queue(), ^{
    static AFXPermissionWindowController *controller;

    if (controller == nil) {
      controller = [[AFXPermissionWindowController alloc]
          initWithUserEmail:sCustomerPersonals.email() ?: reported
          completionHandler:^(AFXConsentChoice answer, NSString *email) {
            __AFXRecordAnswer(answer, email);
            // The controller's own action is still on the stack.
            [controller autorelease];
            controller = nil;
            if (completion) {
              completion(__AFXConsentStatusForWindowAnswer(answer));
            }
          }];
    }
    if (controller.isWindowLoaded && controller.window.isVisible) {
      [controller.window makeKeyAndOrderFront:nil];
    } else {
      [controller showWindow:nil];
    }
  });
  return YES;
}
