#import "drawing/FocusVisibility.h"

#import <Foundation/NSNull.h>

#import "runtime/AssociatedObjects.h"
#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

static const char sVisibleKey;

static void (*sSelectNext)(id, SEL, id);
static void (*sSelectPrevious)(id, SEL, id);

BOOL PlatformFocusIsVisible(NSWindow *window) {
  return objc_getAssociatedObject(window, &sVisibleKey) != nil;
}

static void ShowFocus(id window) {
  objc_setAssociatedObject(window, &sVisibleKey, [NSNull null], OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

static void SelectNext(id window, SEL selector, id sender) {
  ShowFocus(window);
  sSelectNext(window, selector, sender);
}

static void SelectPrevious(id window, SEL selector, id sender) {
  ShowFocus(window);
  sSelectPrevious(window, selector, sender);
}

static void Install(void) {
  sSelectNext = (void (*)(id, SEL, id))PlatformReplaceMethod(
      [NSWindow class], @selector(selectNextKeyView:), (PlatformFunction)SelectNext);
  sSelectPrevious = (void (*)(id, SEL, id))PlatformReplaceMethod(
      [NSWindow class], @selector(selectPreviousKeyView:), (PlatformFunction)SelectPrevious);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
