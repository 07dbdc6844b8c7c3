#import "client/AFXConsentFlow.h"

#import "client/AFXCustomerPersonals.h"
#import "client/AFXPatientAccess.h"
#import "client/AFXServiceAccessor.h"
#import "ui/AFXPermissionWindowController.h"

static const int64_t sReplyTimeout = 2 * NSEC_PER_SEC;

/// Set once the customer chose to be asked later, in the application's own defaults; never unset.
static NSString *const sAskLaterDefaultsKey = @"ShouldAskForPermissionLater";

/// In UTF-16 units; many times what an address can have. To lay out megabytes would stall the
/// window.
static const NSUInteger sLongestEmail = 4096;

static AFXCustomerPersonals sCustomerPersonals;

/// What the agent replied, if it can be an address: a reply of the wrong kind is worth no more than
/// none.
static NSString *AFXEmailOfReply(NSString *reply) {
  return [reply isKindOfClass:NSString.class] && reply.length <= sLongestEmail ? reply : nil;
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

  [AFXSharedServiceAccessor()
      accessService:^(id<AFXProvisioningService> service) {
        if (service == nil) {
          finish();
          return;
        }
        [service fetchAskingPermissionStatus:^(BOOL shouldAsk, NSString *customerEmail) {
          sCustomerPersonals.setStatus(AFXConsentStatusForReply(shouldAsk, [] {
            return [NSUserDefaults.standardUserDefaults boolForKey:sAskLaterDefaultsKey] != NO;
          }));
          sCustomerPersonals.setEmail(AFXEmailOfReply(customerEmail));
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
static void AFXRecordAnswer(AFXConsentChoice answer, NSString *email) {
  sCustomerPersonals.setEmail(email);
  if (answer == AFXConsentChoiceAskLater) {
    [NSUserDefaults.standardUserDefaults setBool:YES forKey:sAskLaterDefaultsKey];
    return;
  }
  // The address as it is now. When the agent is back, the reply to another question may have put
  // the customer's address in the place of a refusal.
  NSString *allowedEmail = sCustomerPersonals.email();
  // Sent once at the most: the answer to an agent that dies over it is not sent to its successor.
  AFXAccessServicePatiently(^(id<AFXProvisioningService> service) {
    [service updateAllowedCustomerEmail:allowedEmail
                               callback:^(BOOL){
                               }];
  });
}

BOOL AFXAskCustomerPermissions(void (^completion)(AFXConsentChoice)) {
  const AFXConsentChoice status = AFXGetPreviousCustomerChoice();
  if (status == AFXConsentStatusUnknown || status == AFXConsentStatusAnswered) {
    if (completion) {
      completion(status);
    }
    return NO;
  }

  dispatch_async(dispatch_get_main_queue(), ^{
    static AFXPermissionWindowController *controller;

    if (controller == nil) {
      controller = [[AFXPermissionWindowController alloc]
          initWithUserEmail:sCustomerPersonals.email()
          completionHandler:^(AFXConsentChoice answer, NSString *email) {
            AFXRecordAnswer(answer, email);
            // The controller's own action is still on the stack.
            [controller autorelease];
            controller = nil;
            if (completion) {
              completion(AFXConsentStatusForWindowAnswer(answer));
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
