#import "runtime/MethodReplacement.h"

#import <Foundation/NSException.h>
#import <Foundation/NSObjCRuntime.h>
#import <Foundation/NSString.h>
#include <objc/runtime.h>

static PlatformFunction Replace(Class target, SEL selector, PlatformFunction replacement) {
  Method method = class_getInstanceMethod(target, selector);
  NSCAssert(method, @"no method of this name to replace");
  const char *types = method_getTypeEncoding(method);
  IMP inherited = method_getImplementation(method);
  if (class_addMethod(target, selector, (IMP)replacement, types)) {
    return (PlatformFunction)inherited;
  }

  IMP own = method_setImplementation(method, (IMP)replacement);
  // libobjc has now changed the dispatch table of this class, but not those of subclasses that are
  // in use already. A method that is added has all of them made anew; the original is one to add.
  NSString *name = [@"platformOriginal_" stringByAppendingString:NSStringFromSelector(selector)];
  class_addMethod(target, NSSelectorFromString(name), own, types);
  return (PlatformFunction)own;
}

PlatformFunction PlatformReplaceMethod(Class target, SEL selector, PlatformFunction replacement) {
  return Replace([target class], selector, replacement);
}

PlatformFunction PlatformReplaceClassMethod(Class target, SEL selector,
                                            PlatformFunction replacement) {
  return Replace(object_getClass([target class]), selector, replacement);
}
