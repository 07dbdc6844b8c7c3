//
// How long the customer waits for a window, measured in the desktop host: the consent window beside
// a borderless one of the same size, with such controls as the consent window has or without any.
// Needs a display, and an agent that wants the customer asked. All times are in milliseconds.
//
//   showFloor(hasControls), showConsent(ask)  until the window's pixels are on the screen
//   clickFloor(), clickConsent()  until it is hidden and the script function `delivered` was called
//   delivered()                   for the module's callback
//   rest()                        runs the event loop until all is idle
//

#import <AppKit/AppKit.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <node_api.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#import "ui/AFXPermissionWindowController.h"

namespace {

using Clock = std::chrono::steady_clock;
/// The consent window's background in the light look.
constexpr unsigned long kLight = 0xF9F9F9;
/// Long enough for a program that is counted, which takes fifty times as long.
constexpr std::chrono::seconds kPatience(60);

NSWindow *sFloor;
Clock::time_point sDelivered;

[[noreturn]] void Fail(const char *what) {
  fprintf(stderr, "bench: %s\n", what);
  exit(1);
}

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// What the screen shows at a point of a window.
unsigned long Pixel(NSWindow *window, NSPoint point) {
  static Display *display = XOpenDisplay(nullptr);
  if (!display) {
    Fail("there is no display");
  }
  const int x = static_cast<int>(NSMinX(window.frame) + point.x);
  const int y = static_cast<int>(NSHeight(window.screen.frame) - NSMinY(window.frame) - point.y);
  XImage *image = XGetImage(display, DefaultRootWindow(display), x, y, 1, 1, AllPlanes, ZPixmap);
  const unsigned long pixel = XGetPixel(image, 0, 0) & 0xFFFFFF;
  XDestroyImage(image);
  return pixel;
}

/// Handles what waits for the application.
void Turn(NSDate *end) {
  NSEvent *event = [NSApp nextEventMatchingMask:NSAnyEventMask
                                      untilDate:end
                                         inMode:NSDefaultRunLoopMode
                                        dequeue:YES];
  if (event) {
    [NSApp sendEvent:event];
  }
  [NSApp updateWindows];
}

template <typename Condition>
void RunUntil(const char *what, Condition condition) {
  const Clock::time_point start = Clock::now();
  for (bool isDone = false; !isDone;) {
    @autoreleasepool {
      Turn([NSDate distantPast]);
      isDone = condition();
    }
    if (Clock::now() - start > kPatience) {
      Fail(what);
    }
  }
}

AFXPermissionWindowController *ConsentController() {
  for (NSWindow *window in NSApp.windows) {
    if (window.isVisible &&
        [window.windowController
            isKindOfClass:NSClassFromString(@"AFXPermissionWindowController")]) {
      return window.windowController;
    }
  }
  return nil;
}

/// Calls a script function from the event loop.
void Call(napi_env env, napi_value function) {
  napi_value global;
  napi_get_global(env, &global);
  if (napi_make_callback(env, nullptr, global, function, 0, nullptr, nullptr) != napi_ok) {
    Fail("the script failed");
  }
}

napi_value Number(napi_env env, double number) {
  napi_value value;
  napi_create_double(env, number, &value);
  return value;
}

napi_value Delivered(napi_env, napi_callback_info) {
  sDelivered = Clock::now();
  return nullptr;
}

/// The first argument of a call.
napi_value Argument(napi_env env, napi_callback_info info) {
  size_t count = 1;
  napi_value argument;
  napi_get_cb_info(env, info, &count, &argument, nullptr, nullptr);
  return argument;
}

NSTextField *Label(NSString *text, CGFloat size) {
  NSTextField *label = [[[NSTextField alloc] initWithFrame:NSZeroRect] autorelease];
  label.editable = NO;
  label.bordered = NO;
  label.drawsBackground = NO;
  label.alignment = NSTextAlignmentCenter;
  label.font = [NSFont systemFontOfSize:size weight:NSFontWeightLight];
  label.stringValue = text;
  label.preferredMaxLayoutWidth = 500;
  return label;
}

NSButton *Button(NSString *title) {
  NSButton *button = [[[NSButton alloc] initWithFrame:NSZeroRect] autorelease];
  button.bezelStyle = NSBezelStyleRounded;
  button.title = title;
  return button;
}

NSImageView *Icon() {
  NSImageView *icon = [[[NSImageView alloc] initWithFrame:NSZeroRect] autorelease];
  icon.image = [NSImage imageNamed:NSImageNameApplicationIcon];
  return icon;
}

void AddControls(NSView *content) {
  NSDictionary *views = @{
    @"icon" : Icon(),
    @"badge" : Icon(),
    @"title" : Label(@"A title", 32),
    @"text" : Label(@"A text of about the same length, in one line.", 14),
    @"note" : Label(@"A note of about the same length, which is a bit longer than that.", 11),
    @"no" : Button(@"No, Thanks"),
    @"yes" : Button(@"Yes, Please")
  };
  for (NSView *view in views.allValues) {
    view.translatesAutoresizingMaskIntoConstraints = NO;
    [content addSubview:view];
  }
  for (NSString *format in @[
         @"V:|-(35)-[icon(90)]-(13)-[title]-(6)-[text]-(20)-[no]", @"V:[yes]-(20)-[note]-(>=8)-|",
         @"V:|-(35)-[badge(40)]", @"H:|-(28)-[title]-(28)-|", @"H:|-(28)-[text]-(28)-|",
         @"H:|-(28)-[note]-(28)-|", @"H:|-(200)-[icon(90)]-(20)-[badge(40)]",
         @"H:|-(150)-[no(>=110)]-(13)-[yes(no)]"
       ]) {
    [content addConstraints:[NSLayoutConstraint constraintsWithVisualFormat:format
                                                                    options:0
                                                                    metrics:nil
                                                                      views:views]];
  }
}

napi_value ShowFloor(napi_env env, napi_callback_info info) {
  bool hasControls = false;
  napi_get_value_bool(env, Argument(env, info), &hasControls);
  const Clock::time_point start = Clock::now();
  @autoreleasepool {
    sFloor = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 556, 355)
                                         styleMask:NSWindowStyleMaskBorderless
                                           backing:NSBackingStoreRetained
                                             defer:NO];
    sFloor.releasedWhenClosed = NO;
    sFloor.backgroundColor = [NSColor colorWithSRGBRed:0xF9 / 255.0
                                                 green:0xF9 / 255.0
                                                  blue:0xF9 / 255.0
                                                 alpha:1];
    if (hasControls) {
      AddControls(sFloor.contentView);
    }
    [sFloor center];
    [sFloor makeKeyAndOrderFront:nil];
  }
  RunUntil("the floor's window does not show",
           [] { return Pixel(sFloor, NSMakePoint(20, 20)) == kLight; });
  return Number(env, MillisecondsSince(start));
}

napi_value ShowConsent(napi_env env, napi_callback_info info) {
  const Clock::time_point start = Clock::now();
  Call(env, Argument(env, info));
  RunUntil("the consent window does not show", [] {
    AFXPermissionWindowController *controller = ConsentController();
    if (!controller || Pixel(controller.window, NSMakePoint(20, 20)) != kLight) {
      return false;
    }
    // The button, which is drawn last, differs from the background in color.
    NSView *button = controller.okButton;
    const NSRect frame = [button convertRect:button.bounds toView:nil];
    const unsigned long pixel =
        Pixel(controller.window, NSMakePoint(NSMinX(frame) + 16, NSMidY(frame)));
    return pixel != kLight && pixel != 0;
  });
  return Number(env, MillisecondsSince(start));
}

napi_value ClickFloor(napi_env env, napi_callback_info) {
  const Clock::time_point start = Clock::now();
  [sFloor orderOut:nil];
  napi_value delivered;
  napi_create_function(env, nullptr, 0, Delivered, nullptr, &delivered);
  Call(env, delivered);
  const double time = MillisecondsSince(start);
  [sFloor release];
  return Number(env, time);
}

napi_value ClickConsent(napi_env env, napi_callback_info) {
  AFXPermissionWindowController *controller = ConsentController();
  const Clock::time_point start = Clock::now();
  @autoreleasepool {
    NSButton *button = controller.okButton;
    [NSApp sendAction:button.action to:button.target from:button];
  }
  const double time = MillisecondsSince(start);
  if (sDelivered < start) {
    Fail("the answer was lost");
  }
  return Number(env, time);
}

napi_value Rest(napi_env, napi_callback_info) {
  const Clock::time_point start = Clock::now();
  while (MillisecondsSince(start) < 30) {
    @autoreleasepool {
      Turn([NSDate dateWithTimeIntervalSinceNow:0.005]);
    }
  }
  return nullptr;
}

napi_value Init(napi_env env, napi_value exports) {
  const struct {
    const char *name;
    napi_callback function;
  } functions[] = {{"showFloor", ShowFloor},   {"showConsent", ShowConsent},
                   {"clickFloor", ClickFloor}, {"clickConsent", ClickConsent},
                   {"delivered", Delivered},   {"rest", Rest}};
  for (const auto &function : functions) {
    napi_value value;
    napi_create_function(env, nullptr, 0, function.function, nullptr, &value);
    napi_set_named_property(env, exports, function.name, value);
  }
  return exports;
}

}  // namespace

NAPI_MODULE(bench_windows, Init)
