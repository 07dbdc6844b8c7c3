// A window and some probes for the tests of the desktop host, as an add-on that a script in it
// requires. What it does stands at each function.

#import <AppKit/AppKit.h>
#include <node.h>

#include <utility>

namespace {

/// Calls a script function from AppKit's turn, where no handle scope is open and no context
/// entered.
class ScriptCall {
 public:
  ScriptCall(v8::Isolate *isolate, v8::Local<v8::Value> function)
      : isolate_(isolate),
        context_(isolate, isolate->GetCurrentContext()),
        function_(isolate, function.As<v8::Function>()) {}

  template <typename Argument>
  void operator()(Argument argument) const {
    v8::HandleScope scope(isolate_);
    v8::Local<v8::Context> context = context_.Get(isolate_);
    v8::Context::Scope inContext(context);
    v8::Local<v8::Value> values[] = {value(argument)};
    (void)node::MakeCallback(isolate_, context->Global(), function_.Get(isolate_), 1, values,
                             node::async_context{0, 0});
  }

 private:
  v8::Local<v8::Value> value(NSString *text) const {
    return v8::String::NewFromUtf8(isolate_, [text UTF8String]).ToLocalChecked();
  }
  v8::Local<v8::Value> value(double number) const { return v8::Number::New(isolate_, number); }
  v8::Local<v8::Value> value(bool flag) const { return v8::Boolean::New(isolate_, flag); }

  v8::Isolate *const isolate_;
  const v8::Global<v8::Context> context_;
  const v8::Global<v8::Function> function_;
};

ScriptCall *sAnswer;
bool sRaises;

}  // namespace

@interface TestWindow : NSWindow
@end

@implementation TestWindow

- (BOOL)canBecomeKeyWindow {
  return YES;
}

- (BOOL)canBecomeMainWindow {
  return YES;
}

@end

/// Tells the script which button answered.
@interface TestWindowTarget : NSObject
@end

@implementation TestWindowTarget

- (void)answer:(NSButton *)sender {
  if (std::exchange(sRaises, false)) {
    [NSException raise:@"TestException" format:@"raised on purpose"];
  }
  (*sAnswer)([sender alternateTitle]);
}

@end

namespace {

TestWindow *sWindow;

NSButton *Button(NSString *name, NSRect frame, NSString *key) {
  static TestWindowTarget *target = [[TestWindowTarget alloc] init];
  NSButton *button = [[[NSButton alloc] initWithFrame:frame] autorelease];
  [button setTitle:name];
  [button setAlternateTitle:name];  // survives whatever a default button makes of its title
  [button setBezelStyle:NSRoundedBezelStyle];
  [button setTarget:target];
  [button setAction:@selector(answer:)];
  if (key != nil) {
    [button setKeyEquivalent:key];
  }
  [[sWindow contentView] addSubview:button];
  return button;
}

NSButton *Named(v8::Isolate *isolate, v8::Local<v8::Value> name) {
  v8::String::Utf8Value text(isolate, name);
  for (NSButton *button in [[sWindow contentView] subviews]) {
    if ([[button alternateTitle] isEqualToString:[NSString stringWithUTF8String:*text]]) {
      return button;
    }
  }
  return nil;
}

/// show(answer): a borderless window with the buttons "ok" (Return), "later" (Escape), "close"
/// (Command-W, without size) and "cancel", in front and key; answer(name) hears each button.
void Show(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  sAnswer = new ScriptCall(arguments.GetIsolate(), arguments[0]);
  sWindow = [[TestWindow alloc] initWithContentRect:NSMakeRect(0, 0, 400, 200)
                                          styleMask:NSBorderlessWindowMask
                                            backing:NSBackingStoreRetained
                                              defer:NO];
  [sWindow setReleasedWhenClosed:YES];
  [sWindow setMovableByWindowBackground:YES];
  Button(@"later", NSMakeRect(10, 160, 100, 30), @"\x1b");
  NSButton *ok = Button(@"ok", NSMakeRect(280, 20, 100, 30), @"\r");
  NSButton *cancel = Button(@"cancel", NSMakeRect(160, 20, 100, 30), nil);
  NSButton *close = Button(@"close", NSZeroRect, @"w");
  [close setKeyEquivalentModifierMask:NSCommandKeyMask];
  [close setRefusesFirstResponder:YES];
  [sWindow setInitialFirstResponder:cancel];
  [cancel setNextKeyView:ok];
  [ok setNextKeyView:cancel];
  [sWindow center];
  [sWindow makeKeyAndOrderFront:nil];
}

/// center(name): [x, y] of the middle of the named button on the screen, y from its top.
void Center(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  v8::Isolate *isolate = arguments.GetIsolate();
  NSButton *button = Named(isolate, arguments[0]);
  NSRect bounds = [button bounds];
  NSPoint middle = [button convertPoint:NSMakePoint(NSMidX(bounds), NSMidY(bounds)) toView:nil];
  NSPoint onScreen = [sWindow convertBaseToScreen:middle];
  double screenHeight = NSHeight([[NSScreen mainScreen] frame]);
  v8::Local<v8::Value> numbers[] = {v8::Number::New(isolate, onScreen.x),
                                    v8::Number::New(isolate, screenHeight - onScreen.y)};
  arguments.GetReturnValue().Set(v8::Array::New(isolate, numbers, 2));
}

/// hide(): orders the window out.
void Hide(const v8::FunctionCallbackInfo<v8::Value> &) { [sWindow orderOut:nil]; }

/// showAgain(): orders the window in.
void ShowAgain(const v8::FunctionCallbackInfo<v8::Value> &) { [sWindow makeKeyAndOrderFront:nil]; }

/// close(): closes the window, which releases it.
void Close(const v8::FunctionCallbackInfo<v8::Value> &) {
  [sWindow close];
  sWindow = nil;
}

/// isKey(): whether the window has the keyboard.
void IsKey(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  arguments.GetReturnValue().Set([sWindow isKeyWindow] == YES);
}

/// focus(name): makes the named button the first responder.
void Focus(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  [sWindow makeFirstResponder:Named(arguments.GetIsolate(), arguments[0])];
}

/// focused(): the name of the button that is the first responder, or null.
void Focused(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  v8::Isolate *isolate = arguments.GetIsolate();
  id responder = [sWindow firstResponder];
  if (![responder isKindOfClass:[NSButton class]]) {
    arguments.GetReturnValue().SetNull();
    return;
  }
  arguments.GetReturnValue().Set(
      v8::String::NewFromUtf8(isolate, [[responder alternateTitle] UTF8String]).ToLocalChecked());
}

/// frame(): [x, y, width, height] of the window on the screen, y from its top.
void Frame(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  v8::Isolate *isolate = arguments.GetIsolate();
  NSRect frame = [sWindow frame];
  double screenHeight = NSHeight([[NSScreen mainScreen] frame]);
  v8::Local<v8::Value> numbers[] = {v8::Number::New(isolate, NSMinX(frame)),
                                    v8::Number::New(isolate, screenHeight - NSMaxY(frame)),
                                    v8::Number::New(isolate, NSWidth(frame)),
                                    v8::Number::New(isolate, NSHeight(frame))};
  arguments.GetReturnValue().Set(v8::Array::New(isolate, numbers, 4));
}

/// fromOtherThread(done): a block comes to the main queue from another thread; done(milliseconds)
/// tells how long it was under way.
void FromOtherThread(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  auto *done = new ScriptCall(arguments.GetIsolate(), arguments[0]);
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 100 * NSEC_PER_MSEC),
                 dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), ^{
                   NSTimeInterval sent = [NSDate timeIntervalSinceReferenceDate];
                   dispatch_async(dispatch_get_main_queue(), ^{
                     (*done)(([NSDate timeIntervalSinceReferenceDate] - sent) * 1000);
                     delete done;
                   });
                 });
}

/// raise(): the next button's action raises an Objective-C exception instead of answering.
void Raise(const v8::FunctionCallbackInfo<v8::Value> &) { sRaises = true; }

/// appearance(): the name of the application's appearance.
void Appearance(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  NSString *name = [[NSApp effectiveAppearance] name];
  arguments.GetReturnValue().Set(
      v8::String::NewFromUtf8(arguments.GetIsolate(), [name UTF8String]).ToLocalChecked());
}

/// enteredContext(done): done(whether a context is entered in AppKit's turn).
void EnteredContext(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  v8::Isolate *isolate = arguments.GetIsolate();
  auto *done = new ScriptCall(isolate, arguments[0]);
  dispatch_async(dispatch_get_main_queue(), ^{
    (*done)(isolate->InContext());
    delete done;
  });
}

/// forgetHandleScope(): makes a handle in AppKit's turn without a scope, which ends the process.
void ForgetHandleScope(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  v8::Isolate *isolate = arguments.GetIsolate();
  dispatch_async(dispatch_get_main_queue(), ^{
    (void)v8::Number::New(isolate, 0.5);
  });
}

/// localized(key): what the host's table has for a text of the consent window.
void Localized(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  v8::Isolate *isolate = arguments.GetIsolate();
  v8::String::Utf8Value key(isolate, arguments[0]);
  NSString *text = [[NSBundle mainBundle] localizedStringForKey:[NSString stringWithUTF8String:*key]
                                                          value:@""
                                                          table:@"Pellmar"];
  arguments.GetReturnValue().Set(
      v8::String::NewFromUtf8(isolate, [text UTF8String]).ToLocalChecked());
}

/// bundle(): [CFBundleName, width of the application's icon].
void Bundle(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  v8::Isolate *isolate = arguments.GetIsolate();
  NSString *name = [[NSBundle mainBundle] objectForInfoDictionaryKey:@"CFBundleName"];
  NSImage *icon = [NSImage imageNamed:NSImageNameApplicationIcon];
  v8::Local<v8::Value> values[] = {
      v8::String::NewFromUtf8(isolate, [name UTF8String]).ToLocalChecked(),
      v8::Number::New(isolate, [icon size].width)};
  arguments.GetReturnValue().Set(v8::Array::New(isolate, values, 2));
}

}  // namespace

/// Called by node under this name when a script requires the add-on.
extern "C" NODE_MODULE_EXPORT void NODE_MODULE_INITIALIZER(v8::Local<v8::Object> exports,
                                                           v8::Local<v8::Value>,
                                                           v8::Local<v8::Context>) {
  const std::pair<const char *, v8::FunctionCallback> functions[] = {
      {"show", Show},
      {"center", Center},
      {"hide", Hide},
      {"showAgain", ShowAgain},
      {"close", Close},
      {"isKey", IsKey},
      {"focus", Focus},
      {"focused", Focused},
      {"frame", Frame},
      {"fromOtherThread", FromOtherThread},
      {"raise", Raise},
      {"appearance", Appearance},
      {"enteredContext", EnteredContext},
      {"forgetHandleScope", ForgetHandleScope},
      {"localized", Localized},
      {"bundle", Bundle},
  };
  for (const auto &[name, function] : functions) {
    NODE_SET_METHOD(exports, name, function);
  }
}
