// Smooth scaling of images. Every context of the backend starts with none at all, which takes
// single pixels out of an image that is drawn at another size.

#import <AppKit/NSGraphicsContext.h>

#import "Install.h"
#import "MethodReplacement.h"

static id (*sInitWithContextInfo)(id, SEL, NSDictionary *);

static id InitWithContextInfo(id self, SEL selector, NSDictionary *info) {
  self = sInitWithContextInfo(self, selector, info);
  [self setImageInterpolation:NSImageInterpolationDefault];
  return self;
}

void PlatformInstallImageInterpolation(void) {
  sInitWithContextInfo = (id(*)(id, SEL, NSDictionary *))PlatformReplaceMethod(
      [[NSGraphicsContext currentContext] class], @selector(initWithContextInfo:),
      (PlatformFunction)InitWithContextInfo);
}
