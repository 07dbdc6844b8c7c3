#import "FocusVisibility.h"

#import <Foundation/NSNull.h>

#import "AttachedState.h"
#import "Install.h"
#import "MethodReplacement.h"

static NSString *const kVisible = @"focus.visible";

static void (*sSelectNext)(id, SEL, id);
static void (*sSelectPrevious)(id, SEL, id);

BOOL PlatformFocusIsVisible(NSWindow *window) {
  return PlatformAttachedState(window, kVisible) != nil;
}

static void SelectNext(id window, SEL selector, id sender) {
  PlatformSetAttachedState(window, kVisible, [NSNull null]);
  sSelectNext(window, selector, sender);
}

static void SelectPrevious(id window, SEL selector, id sender) {
  PlatformSetAttachedState(window, kVisible, [NSNull null]);
  sSelectPrevious(window, selector, sender);
}

void PlatformInstallFocusVisibility(void) {
  sSelectNext = (void (*)(id, SEL, id))PlatformReplaceMethod(
      [NSWindow class], @selector(selectNextKeyView:), (PlatformFunction)SelectNext);
  sSelectPrevious = (void (*)(id, SEL, id))PlatformReplaceMethod(
      [NSWindow class], @selector(selectPreviousKeyView:), (PlatformFunction)SelectPrevious);
}
