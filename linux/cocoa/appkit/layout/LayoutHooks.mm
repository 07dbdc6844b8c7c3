// Puts Auto Layout in the way of those methods of NSView and NSWindow that change frames, hierarchy
// and display; what was there runs as before.

#import <AppKit/AppKit.h>

#import "layout/LayoutEngine.h"
#import "layout/LayoutState.h"
#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

namespace platform::layout {
namespace {

using VoidMethod = void (*)(id, SEL);
using RectMethod = void (*)(id, SEL, NSRect);
using SizeMethod = void (*)(id, SEL, NSSize);
using PointMethod = void (*)(id, SEL, NSPoint);
using ViewMethod = void (*)(id, SEL, NSView *);
using AddMethod = void (*)(id, SEL, NSView *, NSWindowOrderingMode, NSView *);
using ReplaceMethod = void (*)(id, SEL, NSView *, NSView *);
using OrderMethod = void (*)(id, SEL, NSWindowOrderingMode, NSInteger);

VoidMethod viewDealloc, windowDisplay, windowDisplayIfNeeded;
RectMethod viewSetFrame;
SizeMethod viewSetFrameSize, viewResize;
PointMethod viewSetFrameOrigin;
ViewMethod viewRemoveSubview;
AddMethod viewAddSubview;
ReplaceMethod viewReplaceSubview;
OrderMethod windowOrder;

void frameChanged(NSView *view, NSRect before) {
  const NSRect after = [view frame];
  if (NSEqualRects(before, after)) {
    return;
  }
  if (!NSEqualSizes(before.size, after.size)) {
    if (LayoutState *state = existingState(view)) {
      state->needsLayout = true;
    }
  }
  if (!isPlacing()) {
    invalidateIfLaidOut(view);
  }
}

bool usesLayout(NSView *view) {
  if (existingState(view) != nullptr) {
    return true;
  }
  for (NSView *subview in [view subviews]) {
    if (usesLayout(subview)) {
      return true;
    }
  }
  return false;
}

void deallocView(id self, SEL selector) {
  forgetState(self);
  viewDealloc(self, selector);
}

void setFrame(id self, SEL selector, NSRect frame) {
  const NSRect before = [self frame];
  viewSetFrame(self, selector, frame);
  frameChanged(self, before);
}

void setFrameSize(id self, SEL selector, NSSize size) {
  const NSRect before = [self frame];
  viewSetFrameSize(self, selector, size);
  frameChanged(self, before);
}

void setFrameOrigin(id self, SEL selector, NSPoint origin) {
  const NSRect before = [self frame];
  viewSetFrameOrigin(self, selector, origin);
  frameChanged(self, before);
}

void resizeWithOldSuperviewSize(id self, SEL selector, NSSize size) {
  const LayoutState *state = existingState(self);
  if (state == nullptr || state->translatesMask) {
    viewResize(self, selector, size);
  }
}

void removeSubview(id self, SEL selector, NSView *subview) {
  if (subview != nil && [subview superview] == self) {
    detach(subview);
  }
  viewRemoveSubview(self, selector, subview);
  invalidateIfLaidOut(self);
}

void arrived(NSView *subview) {
  if (subview == nil || !usesLayout(subview)) {
    return;
  }
  // It was a root until now, and as a content view it still is.
  LayoutState *state = existingState(subview);
  if (state != nullptr && rootOf(subview) != subview) {
    state->dirty = false;
  }
  invalidate(subview);
}

void addSubview(id self, SEL selector, NSView *subview, NSWindowOrderingMode place, NSView *other) {
  viewAddSubview(self, selector, subview, place, other);
  arrived(subview);
}

void replaceSubview(id self, SEL selector, NSView *before, NSView *after) {
  viewReplaceSubview(self, selector, before, after);
  arrived(after);
}

void layOutContent(NSWindow *window) { layOutIfNeeded([window contentView]); }

void orderWindow(id self, SEL selector, NSWindowOrderingMode place, NSInteger other) {
  if (place != NSWindowOut) {
    layOutContent(self);
  }
  windowOrder(self, selector, place, other);
}

void displayWindow(id self, SEL selector) {
  layOutContent(self);
  windowDisplay(self, selector);
}

void displayWindowIfNeeded(id self, SEL selector) {
  // What changes a layout asks for a display, and asking all controls for their sizes takes time.
  if ([self viewsNeedDisplay]) {
    layOutContent(self);
  }
  windowDisplayIfNeeded(self, selector);
}

template <typename Function>
void replace(Class target, SEL selector, Function replacement, Function *former) {
  *former = reinterpret_cast<Function>(
      PlatformReplaceMethod(target, selector, reinterpret_cast<PlatformFunction>(replacement)));
}

void install() {
  Class view = [NSView class];
  replace(view, @selector(dealloc), deallocView, &viewDealloc);
  replace(view, @selector(setFrame:), setFrame, &viewSetFrame);
  replace(view, @selector(setFrameSize:), setFrameSize, &viewSetFrameSize);
  replace(view, @selector(setFrameOrigin:), setFrameOrigin, &viewSetFrameOrigin);
  replace(view, @selector(resizeWithOldSuperviewSize:), resizeWithOldSuperviewSize, &viewResize);
  replace(view, @selector(removeSubview:), removeSubview, &viewRemoveSubview);
  replace(view, @selector(addSubview:positioned:relativeTo:), addSubview, &viewAddSubview);
  replace(view, @selector(replaceSubview:with:), replaceSubview, &viewReplaceSubview);
  Class window = [NSWindow class];
  replace(window, @selector(orderWindow:relativeTo:), orderWindow, &windowOrder);
  replace(window, @selector(display), displayWindow, &windowDisplay);
  replace(window, @selector(displayIfNeeded), displayWindowIfNeeded, &windowDisplayIfNeeded);
}

__attribute__((constructor)) void registerInstall() { PlatformInstallAtLaunch(install); }

}  // namespace
}  // namespace platform::layout
