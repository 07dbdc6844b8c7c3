#import <AppKit/NSApplication.h>
#import <AppKit/NSImageNames.h>

#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

NSImageName const NSImageNameApplicationIcon = @"NSApplicationIcon";

static id (*sImageNamed)(id, SEL, NSString *);

/// GNUstep gives the icon its name only when the bundle's Info dictionary names a file, and
/// only once the application has been asked for it.
static id ImageNamed(id self, SEL selector, NSString *name) {
  NSImage *image = sImageNamed(self, selector, name);
  if (image || ![name isEqualToString:NSImageNameApplicationIcon]) {
    return image;
  }
  NSImage *icon = [[NSApplication sharedApplication] applicationIconImage];
  image = sImageNamed(self, selector, name);
  return image ? image : icon;
}

static void Install(void) {
  sImageNamed = (id(*)(id, SEL, NSString *))PlatformReplaceClassMethod(
      [NSImage class], @selector(imageNamed:), (PlatformFunction)ImageNamed);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
