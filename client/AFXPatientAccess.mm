#import "client/AFXPatientAccess.h"

/// How often an agent that is missing is looked for again, and how long before each time: a second
/// and a half altogether, so that one that is back within a second is found on a busy machine too.
static const int sRetries = 12;
static const int64_t sRetryPause = 125 * NSEC_PER_MSEC;

static void AFXAccessServiceWithRetries(int retries, AFXServiceHandler handler) {
  [AFXSharedServiceAccessor() accessService:^(id<AFXProvisioningService> service) {
    if (service != nil || retries == 0) {
      handler(service);
      return;
    }
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, sRetryPause),
                   dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), ^{
                     AFXAccessServiceWithRetries(retries - 1, handler);
                   });
  }];
}

void AFXAccessServicePatiently(AFXServiceHandler handler) {
  AFXAccessServiceWithRetries(sRetries, handler);
}
