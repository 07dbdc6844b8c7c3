#import <AppKit/NSActivationPolicy.h>

static NSApplicationActivationPolicy sPolicy = NSApplicationActivationPolicyRegular;

@implementation NSApplication (PlatformActivationPolicy)

- (NSApplicationActivationPolicy)activationPolicy {
  return sPolicy;
}

- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)policy {
  sPolicy = policy;
  return YES;
}

@end
