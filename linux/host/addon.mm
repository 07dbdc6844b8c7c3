// What the host's start script sees of the application, as the object that `require` returns.

#include <node.h>

#import "PDMApplication.h"
#include "ScriptLoop.h"

namespace {

void Throw(v8::Isolate *isolate, NSString *message) {
  isolate->ThrowException(v8::Exception::Error(
      v8::String::NewFromUtf8(isolate, [message UTF8String], v8::NewStringType::kNormal)
          .ToLocalChecked()));
}

/// launch(): starts the application. Throws where it cannot.
void Launch(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  v8::Isolate *isolate = arguments.GetIsolate();
  NSString *error = nil;
  if (![PDMApplication launchReturningError:&error]) {
    Throw(isolate, error);
    return;
  }
  auto *loop = new ScriptLoop(isolate, node::GetCurrentEventLoop(isolate),
                              [](uv_loop_t *uv) { [PDMApplication turnBeside:uv]; });
  loop->start();
}

/// setDark(dark): the application's appearance, from now on in place of the desktop's.
void SetDark(const v8::FunctionCallbackInfo<v8::Value> &arguments) {
  [PDMApplication setDark:arguments[0]->IsTrue()];
}

/// willTerminate(): tells the application's parts that the process is about to end.
void WillTerminate(const v8::FunctionCallbackInfo<v8::Value> &) { [PDMApplication willTerminate]; }

}  // namespace

/// Called by node under this name when a script requires the add-on.
extern "C" NODE_MODULE_EXPORT void NODE_MODULE_INITIALIZER(v8::Local<v8::Object> exports,
                                                           v8::Local<v8::Value>,
                                                           v8::Local<v8::Context>) {
  NODE_SET_METHOD(exports, "launch", Launch);
  NODE_SET_METHOD(exports, "setDark", SetDark);
  NODE_SET_METHOD(exports, "willTerminate", WillTerminate);
}
