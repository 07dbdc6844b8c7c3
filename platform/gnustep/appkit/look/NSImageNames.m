#import <AppKit/NSApplication.h>
#import <AppKit/NSImageNames.h>

#import "Install.h"
#import "MethodReplacement.h"

NSImageName const NSImageNameApplicationIcon = @"NSApplicationIcon";

static id (*sImageNamed)(id, SEL, NSString *);

/// The toolkit gives the icon its name only when the bundle's Info dictionary names a file, and
/// only once the application has been asked for it.
static id ImageNamed(id self, SEL selector, NSString *name) {
  NSImage *image = sImageNamed(self, selector, name);
  if (image || ![name isEqualToString:NSImageNameApplicationIcon]) return image;
  NSImage *icon = [[NSApplication sharedApplication] applicationIconImage];
  image = sImageNamed(self, selector, name);
  return image ? image : icon;
}

void PlatformInstallImageNames(void) {
  sImageNamed = (id(*)(id, SEL, NSString *))PlatformReplaceClassMethod(
      [NSImage class], @selector(imageNamed:), (PlatformFunction)ImageNamed);
}
