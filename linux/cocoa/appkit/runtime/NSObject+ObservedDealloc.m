// Logs that an object was deallocated while key-value observers were registered, as Apple's
// Foundation does; GNUstep drops the observers silently.

#import <Foundation/Foundation.h>

#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

static void (*sDealloc)(id, SEL);

static void Dealloc(id object, SEL selector) {
  id info = (id)[object observationInfo];
  if (info) {
    NSLog(@"An instance %p of class %@ was deallocated while key value observers were still "
          @"registered with it. Current observation info: %@",
          object, NSStringFromClass([object class]), info);
  }
  sDealloc(object, selector);
}

static void Install(void) {
  // The methods of this class are copied into every class made for observed objects.
  sDealloc = (void (*)(id, SEL))PlatformReplaceMethod(
      NSClassFromString(@"GSKVOBase"), @selector(dealloc), (PlatformFunction)Dealloc);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
