// What native code of an application does with the Mac's bundle in this process, for scripts of the
// tests: its functions and constants are looked up by their names, as dlsym does.

#include <dlfcn.h>
#include <node.h>

#include <string>

#import "client/Pellmar.h"

namespace {

using v8::FunctionCallbackInfo;
using v8::Isolate;
using v8::Local;
using v8::Object;
using v8::Value;

/// The module that has loaded the bundle, under the path that a script has required.
void *sLoader;

void *Exported(const char *name) {
  static const auto exported =
      reinterpret_cast<void *(*)(const char *)>(dlsym(sLoader, "macho_exported"));
  return exported(name);
}

/// The bundle's function of that name, with the type that the header gives it.
#define EXPORTED(function) (reinterpret_cast<decltype(&function)>(Exported(#function)))

std::string Text(const FunctionCallbackInfo<Value> &arguments, int index) {
  return *v8::String::Utf8Value(arguments.GetIsolate(), arguments[index]);
}

void Return(const FunctionCallbackInfo<Value> &arguments, const std::string &text) {
  arguments.GetReturnValue().Set(
      v8::String::NewFromUtf8(arguments.GetIsolate(), text.c_str(), v8::NewStringType::kNormal)
          .ToLocalChecked());
}

/// use(path): the module in whose bundle the others look.
void Use(const FunctionCallbackInfo<Value> &arguments) {
  sLoader = dlopen(Text(arguments, 0).c_str(), RTLD_LAZY | RTLD_NOLOAD);
}

/// exports(name): whether there is such a symbol.
void Exports(const FunctionCallbackInfo<Value> &arguments) {
  arguments.GetReturnValue().Set(Exported(Text(arguments, 0).c_str()) != nullptr);
}

/// constant(name): the text of a constant.
void Constant(const FunctionCallbackInfo<Value> &arguments) {
  NSString *const *constant = static_cast<NSString *const *>(Exported(Text(arguments, 0).c_str()));
  Return(arguments, [*constant UTF8String]);
}

/// text(name): what a function that takes nothing and gives a text returns.
void CallForText(const FunctionCallbackInfo<Value> &arguments) {
  const auto function = reinterpret_cast<const char *(*)()>(Exported(Text(arguments, 0).c_str()));
  Return(arguments, function());
}

/// report(canBeSent): an event with information, or with an object that no connection sends.
void Report(const FunctionCallbackInfo<Value> &arguments) {
  @autoreleasepool {
    NSDictionary *info = arguments[0]->IsTrue()
                             ? @{@"text" : @"Grüße",
                                 @"number" : @42,
                                 @"list" : @[ @1, @"two" ]}
                             : @{@"object" : [[NSObject new] autorelease]};
    EXPORTED(PLReportUsageEvent)(@"native", info);
  }
}

/// requestCode(canBeSent): "code CODE" or "error DOMAIN CODE", once it has come.
void RequestCode(const FunctionCallbackInfo<Value> &arguments) {
  @autoreleasepool {
    NSArray *scopes = @[ @"application.access" ];
    if (!arguments[0]->IsTrue()) {
      scopes = (id) @[ [[NSObject new] autorelease] ];
    }
    __block std::string outcome = "nothing";
    dispatch_semaphore_t done = dispatch_semaphore_create(0);
    EXPORTED(PLRequestAuthorizationCode)(@"native", scopes, ^(NSString *code, NSError *error) {
      outcome = error ? std::string("error ") + [error.domain UTF8String] + " " +
                            std::to_string(error.code)
                      : std::string("code ") + [code UTF8String];
      dispatch_semaphore_signal(done);
    });
    dispatch_semaphore_wait(done, dispatch_time(DISPATCH_TIME_NOW, int64_t{20} * 1000000000));
    dispatch_release(done);
    Return(arguments, outcome);
  }
}

/// enableDebugLogging(value): with values that scripts cannot pass to the module.
void EnableDebugLogging(const FunctionCallbackInfo<Value> &arguments) {
  @autoreleasepool {
    EXPORTED(PLEnableDebugLogging)
    (static_cast<BOOL>(arguments[0].As<v8::Int32>()->Value()));
  }
}

}  // namespace

/// Called by node under this name when a script requires the add-on.
extern "C" NODE_MODULE_EXPORT void NODE_MODULE_INITIALIZER(Local<Object> exports, Local<Value>,
                                                           Local<v8::Context>) {
  NODE_SET_METHOD(exports, "use", Use);
  NODE_SET_METHOD(exports, "exports", Exports);
  NODE_SET_METHOD(exports, "constant", Constant);
  NODE_SET_METHOD(exports, "text", CallForText);
  NODE_SET_METHOD(exports, "report", Report);
  NODE_SET_METHOD(exports, "requestCode", RequestCode);
  NODE_SET_METHOD(exports, "enableDebugLogging", EnableDebugLogging);
}
