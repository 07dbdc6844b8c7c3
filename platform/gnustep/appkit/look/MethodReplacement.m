#import "MethodReplacement.h"

#import <Foundation/NSException.h>
#include <objc/runtime.h>

static PlatformFunction Replace(Class target, SEL selector, PlatformFunction replacement) {
  Method method = class_getInstanceMethod(target, selector);
  NSCAssert(method, @"no method of this name to replace");
  IMP inherited = method_getImplementation(method);
  IMP own = class_replaceMethod(target, selector, (IMP)replacement, method_getTypeEncoding(method));
  return (PlatformFunction)(own ? own : inherited);
}

PlatformFunction PlatformReplaceMethod(Class target, SEL selector, PlatformFunction replacement) {
  return Replace([target class], selector, replacement);
}

PlatformFunction PlatformReplaceClassMethod(Class target, SEL selector,
                                            PlatformFunction replacement) {
  return Replace(object_getClass([target class]), selector, replacement);
}
