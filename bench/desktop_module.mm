//
// How long the customer and the script wait for each other, measured in the desktop host: the
// consent window beside an empty borderless one of the same size, its other look, and the answer's
// way beside a block that is queued to the main loop.
//
//   run(rounds, ask)  -> { empty: […], window: […], switch: […], block: […], click: […], orderOut:
//   […] } delivered()       to be called by the script's callback
//
// Part of each click is the window's orderOut:, whose time is the toolkit's and the display's.
//
// All times are in milliseconds. `ask` is to have the module ask the customer, with a callback that
// calls `delivered`. Needs a display, and an agent that wants the customer asked.
//

#import <AppKit/AppKit.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <node_api.h>
#include <objc/runtime.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#import "ui/AFXPermissionWindowController.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr NSSize kSize = {556, 355};
constexpr unsigned long kLight = 0xF9F9F9;
constexpr unsigned long kDark = 0x333333;
constexpr std::chrono::seconds kPatience(10);

/// What is on the screen, seen through a connection of its own to the display.
class Screen {
 public:
  Screen() : display_(XOpenDisplay(nullptr)) {
    if (!display_) {
      fprintf(stderr, "bench: there is no display\n");
      exit(1);
    }
  }

  /// @param x,y  From the screen's top left.
  unsigned long Pixel(int x, int y) {
    XImage *image =
        XGetImage(display_, DefaultRootWindow(display_), x, y, 1, 1, AllPlanes, ZPixmap);
    const unsigned long pixel = XGetPixel(image, 0, 0) & 0xFFFFFF;
    XDestroyImage(image);
    return pixel;
  }

 private:
  Display *display_;
};

/// Handles what waits for the application.
void Turn() {
  @autoreleasepool {
    NSEvent *event = [NSApp nextEventMatchingMask:NSAnyEventMask
                                        untilDate:[NSDate distantPast]
                                           inMode:NSDefaultRunLoopMode
                                          dequeue:YES];
    if (event) {
      [NSApp sendEvent:event];
    }
    [NSApp updateWindows];
  }
}

/// Runs the event loop until `condition`, which `what` says in words. Returns the milliseconds
/// since `start`.
template <typename Condition>
double MillisecondsUntil(const char *what, Clock::time_point start, Condition condition) {
  while (!condition()) {
    Turn();
    if (Clock::now() - start > kPatience) {
      fprintf(stderr, "bench: timed out waiting until %s\n", what);
      exit(1);
    }
  }
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// A point of a centred window, seen from the screen's top left.
NSPoint OnScreen(NSWindow *window, NSPoint point) {
  const NSRect screen = window.screen.frame;
  return NSMakePoint(NSMinX(window.frame) + point.x,
                     NSHeight(screen) - (NSMinY(window.frame) + point.y));
}

NSWindow *ConsentWindow() {
  for (NSWindow *window in NSApp.windows) {
    if ([window isKindOfClass:NSClassFromString(@"AFXPermissionWindow")] && window.isVisible) {
      return window;
    }
  }
  return nil;
}

/// Runs the event loop until the application and the display are idle.
void LetGo() {
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(30);
  while (Clock::now() < end) {
    Turn();
    @autoreleasepool {
      [NSRunLoop.currentRunLoop acceptInputForMode:NSDefaultRunLoopMode
                                        beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.005]];
    }
  }
}

/// The module's script side: what it calls and what it is called by.
struct Script {
  napi_env env;
  napi_value ask;
  napi_value delivered;

  void Call(napi_value function) const {
    napi_handle_scope scope;
    napi_value global;
    napi_open_handle_scope(env, &scope);
    napi_get_global(env, &global);
    if (napi_make_callback(env, nullptr, global, function, 0, nullptr, nullptr) != napi_ok) {
      fprintf(stderr, "bench: the script failed\n");
      exit(1);
    }
    napi_close_handle_scope(env, scope);
  }
};

Clock::time_point sDelivered;
Clock::duration sOrderOutTime;
IMP sOrderOut;

/// The consent window's orderOut:, timed.
void TimedOrderOut(id window, SEL selector, id sender) {
  const Clock::time_point start = Clock::now();
  sOrderOut(window, selector, sender);
  sOrderOutTime = Clock::now() - start;
}

void TimeOrderOut() {
  Class window = NSClassFromString(@"AFXPermissionWindow");
  Method inherited = class_getInstanceMethod(window, @selector(orderOut:));
  sOrderOut = method_getImplementation(inherited);
  class_addMethod(window, @selector(orderOut:),
                  reinterpret_cast<IMP>(reinterpret_cast<void (*)()>(&TimedOrderOut)),
                  method_getTypeEncoding(inherited));
}

class Rounds {
 public:
  explicit Rounds(const Script &script) : script_(script) {}

  void Run(int count) {
    for (int i = 0; i < count; ++i) {
      @autoreleasepool {
        Empty();
        LetGo();
        Consent();
        LetGo();
        Block();
        LetGo();
      }
    }
  }

  struct Row {
    const char *name;
    std::vector<double> milliseconds;
  };
  Row rows[6] = {{"empty", {}}, {"window", {}}, {"switch", {}},
                 {"block", {}}, {"click", {}},  {"orderOut", {}}};

 private:
  enum { kEmpty, kWindow, kSwitch, kBlock, kClick, kOrderOut };

  void Add(int row, double milliseconds) { rows[row].milliseconds.push_back(milliseconds); }

  void Empty() {
    const Clock::time_point start = Clock::now();
    NSWindow *window =
        [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, kSize.width, kSize.height)
                                    styleMask:NSWindowStyleMaskBorderless
                                      backing:NSBackingStoreRetained
                                        defer:NO];
    window.releasedWhenClosed = NO;
    window.backgroundColor = [NSColor whiteColor];
    [window center];
    [window makeKeyAndOrderFront:nil];
    const NSPoint point = OnScreen(window, NSMakePoint(20, 20));
    Add(kEmpty,
        MillisecondsUntil("an empty window shows", start, [&] { return Shows(point, 0xFFFFFF); }));
    [window orderOut:nil];
    [window release];
  }

  void Consent() {
    const Clock::time_point start = Clock::now();
    script_.Call(script_.ask);
    AFXPermissionWindowController *controller = nil;
    NSPoint background = NSZeroPoint;
    Add(kWindow, MillisecondsUntil("the consent window shows", start, [&] {
          NSWindow *window = ConsentWindow();
          if (!window) {
            return false;
          }
          controller = window.windowController;
          background = OnScreen(window, NSMakePoint(20, 20));
          NSView *ok = controller.okButton;
          const NSRect frame = [ok convertRect:ok.bounds toView:nil];
          const NSPoint button = OnScreen(window, NSMakePoint(NSMinX(frame) + 16, NSMidY(frame)));
          // The button, which is drawn last, differs from the background in color.
          return Shows(background, kLight) && !Shows(button, kLight) && !Shows(button, 0);
        }));
    for (unsigned long color : {kDark, kLight}) {
      LetGo();
      const Clock::time_point switched = Clock::now();
      NSApp.appearance = [NSAppearance
          appearanceNamed:color == kDark ? NSAppearanceNameDarkAqua : NSAppearanceNameAqua];
      Add(kSwitch, MillisecondsUntil("the look has changed", switched,
                                     [&] { return Shows(background, color); }));
    }
    LetGo();
    const Clock::time_point clicked = Clock::now();
    NSButton *ok = controller.okButton;
    [NSApp sendAction:ok.action to:ok.target from:ok];
    AddDelivery(kClick, clicked);
    Add(kOrderOut, std::chrono::duration<double, std::milli>(sOrderOutTime).count());
  }

  void Block() {
    const Clock::time_point start = Clock::now();
    const Script *script = &script_;
    dispatch_async(dispatch_get_main_queue(), ^{
      script->Call(script->delivered);
    });
    MillisecondsUntil("the block has run", start, [start] { return sDelivered > start; });
    AddDelivery(kBlock, start);
  }

  void AddDelivery(int row, Clock::time_point start) {
    if (sDelivered < start) {
      fprintf(stderr, "bench: the answer was lost\n");
      exit(1);
    }
    Add(row, std::chrono::duration<double, std::milli>(sDelivered - start).count());
  }

  bool Shows(NSPoint point, unsigned long color) {
    return screen_.Pixel(static_cast<int>(point.x), static_cast<int>(point.y)) == color;
  }

  const Script script_;
  Screen screen_;
};

napi_value Delivered(napi_env, napi_callback_info) {
  sDelivered = Clock::now();
  return nullptr;
}

napi_value Run(napi_env env, napi_callback_info info) {
  size_t count = 2;
  napi_value arguments[2];
  napi_get_cb_info(env, info, &count, arguments, nullptr, nullptr);
  int32_t rounds = 0;
  napi_get_value_int32(env, arguments[0], &rounds);
  Script script{env, arguments[1], nullptr};
  napi_create_function(env, nullptr, 0, Delivered, nullptr, &script.delivered);

  TimeOrderOut();
  Rounds all(script);
  all.Run(rounds);
  napi_value result;
  napi_create_object(env, &result);
  for (const Rounds::Row &row : all.rows) {
    napi_value values;
    napi_create_array(env, &values);
    for (size_t i = 0; i < row.milliseconds.size(); ++i) {
      napi_value value;
      napi_create_double(env, row.milliseconds[i], &value);
      napi_set_element(env, values, static_cast<uint32_t>(i), value);
    }
    napi_set_named_property(env, result, row.name, values);
  }
  return result;
}

napi_value Init(napi_env env, napi_value exports) {
  const napi_property_descriptor functions[] = {
      {"run", nullptr, Run, nullptr, nullptr, nullptr, napi_enumerable, nullptr},
      {"delivered", nullptr, Delivered, nullptr, nullptr, nullptr, napi_enumerable, nullptr}};
  napi_define_properties(env, exports, 2, functions);
  return exports;
}

}  // namespace

NAPI_MODULE(bench_desktop, Init)
