#import <AppKit/AppKit.h>

#import "client/Pellmar.h"

void ReportExport(NSString *format, NSUInteger pages) {
  PLReportUsageEvent(@"Document exported", @{@"format" : format, @"pages" : @(pages)});
}

void SignIn(void (^useCode)(NSString *code)) {
  PLRequestAuthorizationCode(
      @"com.example.editor", @[ PLVendorAuthScopeApplicationAccess ],
      ^(NSString *code, NSError *error) {
        // This runs on a global queue.
        dispatch_async(dispatch_get_main_queue(), ^{
          if (code) {
            useCode(code);
          } else if (![error.userInfo
                         objectForKey:AFXProvisioningServiceOmitPresentationErrorKey]) {
            [NSApp presentError:error];
          }
        });
      });
}
