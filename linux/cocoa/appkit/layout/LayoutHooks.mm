// Hooks into the methods of NSView and NSWindow that change frames, hierarchy and display; the
// original implementations still run.

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

VoidMethod sViewDealloc, sWindowDisplay, sWindowDisplayIfNeeded;
RectMethod sViewSetFrame;
SizeMethod sViewSetFrameSize, sViewResize;
PointMethod sViewSetFrameOrigin;
ViewMethod sViewRemoveSubview;
AddMethod sViewAddSubview;
ReplaceMethod sViewReplaceSubview;
OrderMethod sWindowOrder;

void FrameChanged(NSView *view, NSRect before) {
  const NSRect after = [view frame];
  if (NSEqualRects(before, after)) {
    return;
  }
  if (!NSEqualSizes(before.size, after.size)) {
    if (LayoutState *state = ExistingState(view)) {
      state->needsLayout = true;
    }
  }
  if (!IsPlacing()) {
    InvalidateIfLaidOut(view);
  }
}

bool UsesLayout(NSView *view) {
  if (ExistingState(view) != nullptr) {
    return true;
  }
  for (NSView *subview in [view subviews]) {
    if (UsesLayout(subview)) {
      return true;
    }
  }
  return false;
}

void DeallocView(id self, SEL selector) {
  ForgetState(self);
  sViewDealloc(self, selector);
}

void SetFrame(id self, SEL selector, NSRect frame) {
  const NSRect before = [self frame];
  sViewSetFrame(self, selector, frame);
  FrameChanged(self, before);
}

void SetFrameSize(id self, SEL selector, NSSize size) {
  const NSRect before = [self frame];
  sViewSetFrameSize(self, selector, size);
  FrameChanged(self, before);
}

void SetFrameOrigin(id self, SEL selector, NSPoint origin) {
  const NSRect before = [self frame];
  sViewSetFrameOrigin(self, selector, origin);
  FrameChanged(self, before);
}

void ResizeWithOldSuperviewSize(id self, SEL selector, NSSize size) {
  const LayoutState *state = ExistingState(self);
  if (state == nullptr || state->translatesMask) {
    sViewResize(self, selector, size);
  }
}

void RemoveSubview(id self, SEL selector, NSView *subview) {
  if (subview != nil && [subview superview] == self) {
    Detach(subview);
  }
  sViewRemoveSubview(self, selector, subview);
  InvalidateIfLaidOut(self);
}

void Arrived(NSView *subview) {
  if (subview == nil || !UsesLayout(subview)) {
    return;
  }
  // It was a root until now, and as a content view it still is.
  LayoutState *state = ExistingState(subview);
  if (state != nullptr && RootOf(subview) != subview) {
    state->dirty = false;
  }
  Invalidate(subview);
}

void AddSubview(id self, SEL selector, NSView *subview, NSWindowOrderingMode place, NSView *other) {
  sViewAddSubview(self, selector, subview, place, other);
  Arrived(subview);
}

void ReplaceSubview(id self, SEL selector, NSView *before, NSView *after) {
  sViewReplaceSubview(self, selector, before, after);
  Arrived(after);
}

void LayOutContent(NSWindow *window) { LayOutIfNeeded([window contentView]); }

void OrderWindow(id self, SEL selector, NSWindowOrderingMode place, NSInteger other) {
  if (place != NSWindowOut) {
    LayOutContent(self);
  }
  sWindowOrder(self, selector, place, other);
}

void DisplayWindow(id self, SEL selector) {
  LayOutContent(self);
  sWindowDisplay(self, selector);
}

void DisplayWindowIfNeeded(id self, SEL selector) {
  // What changes a layout asks for a display, and asking all controls for their sizes takes time.
  if ([self viewsNeedDisplay]) {
    LayOutContent(self);
  }
  sWindowDisplayIfNeeded(self, selector);
}

template <typename Function>
void Replace(Class target, SEL selector, Function replacement, Function *former) {
  *former = reinterpret_cast<Function>(
      PlatformReplaceMethod(target, selector, reinterpret_cast<PlatformFunction>(replacement)));
}

void Install() {
  Class view = [NSView class];
  Replace(view, @selector(dealloc), DeallocView, &sViewDealloc);
  Replace(view, @selector(setFrame:), SetFrame, &sViewSetFrame);
  Replace(view, @selector(setFrameSize:), SetFrameSize, &sViewSetFrameSize);
  Replace(view, @selector(setFrameOrigin:), SetFrameOrigin, &sViewSetFrameOrigin);
  Replace(view, @selector(resizeWithOldSuperviewSize:), ResizeWithOldSuperviewSize, &sViewResize);
  Replace(view, @selector(removeSubview:), RemoveSubview, &sViewRemoveSubview);
  Replace(view, @selector(addSubview:positioned:relativeTo:), AddSubview, &sViewAddSubview);
  Replace(view, @selector(replaceSubview:with:), ReplaceSubview, &sViewReplaceSubview);
  Class window = [NSWindow class];
  Replace(window, @selector(orderWindow:relativeTo:), OrderWindow, &sWindowOrder);
  Replace(window, @selector(display), DisplayWindow, &sWindowDisplay);
  Replace(window, @selector(displayIfNeeded), DisplayWindowIfNeeded, &sWindowDisplayIfNeeded);
}

__attribute__((constructor)) void Register() { PlatformInstallAtLaunch(Install); }

}  // namespace
}  // namespace platform::layout
