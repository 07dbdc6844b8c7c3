// Smooth scaling of images. Every context of the backend starts with no interpolation, and its
// default one takes single pixels out of an image that is much larger than it is drawn.

#import <AppKit/NSGraphicsContext.h>

#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

static id (*sInitWithContextInfo)(id, SEL, NSDictionary *);

static id InitWithContextInfo(id self, SEL selector, NSDictionary *info) {
  self = sInitWithContextInfo(self, selector, info);
  [self setImageInterpolation:NSImageInterpolationHigh];
  return self;
}

static void Install(void) {
  sInitWithContextInfo = (id(*)(id, SEL, NSDictionary *))PlatformReplaceMethod(
      [[NSGraphicsContext currentContext] class], @selector(initWithContextInfo:),
      (PlatformFunction)InitWithContextInfo);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
