//
// The module's entry: its record, the function that fills the exports object, and the script
// functions, each a thin layer over the public function of the same name.
//
// All of this runs on the script engine's thread, which is the application's main thread. No
// exception of Objective-C or C++ may reach the engine, which cannot unwind through its frames:
// every way into the library goes through `Guarded`.
//

#include <nan.h>
#include <node.h>

#import "client/Pellmar.h"

namespace {

using v8::Context;
using v8::Function;
using v8::FunctionCallbackInfo;
using v8::FunctionTemplate;
using v8::HandleScope;
using v8::Isolate;
using v8::Local;
using v8::NewStringType;
using v8::Object;
using v8::String;
using v8::Value;

using Arguments = FunctionCallbackInfo<Value>;

/// Runs `body`; an exception of the native side ends here.
template <typename Body>
void Guarded(Body body) {
  @try {
    @autoreleasepool {
      body();
    }
  } @catch (...) {
  }
}

void _PLShowReleaseNotesWindowIfNeeded(const Arguments &) {
  Guarded([] { PLShowReleaseNotesWindowIfNeeded(); });
}

void _PLShowReleaseNotesWindow(const Arguments &) {
  Guarded([] { PLShowReleaseNotesWindow(); });
}

void _PLCanShowReleaseNotesWindow(const Arguments &info) {
  info.GetReturnValue().Set(PLCanShowReleaseNotesWindow() != NO);
}

void _PLReportUsageEvent(const Arguments &info) {
  if (info.Length() < 1) {
    Nan::ThrowTypeError("Wrong number of arguments. Should be at least 1 string arg.");
    return;
  }
  // A value that cannot be converted has no text, and the exception of the attempt ends here.
  const String::Utf8Value name(info.GetIsolate(), info[0]);
  if (info.Length() >= 2) {
    Nan::ThrowTypeError("Second argument is not supportted rignt now");
    // The event is reported all the same.
  }
  Guarded([&name] {
    NSString *event = *name ? [NSString stringWithUTF8String:*name] : nil;
    PLReportUsageEvent(event ?: @"", nil);
  });
}

void _PLGetLastUserEmailSharingResponse(const Arguments &info) {
  PLEmailSharingAnswer answer = PLEmailSharingAnswerUnknown;
  Guarded([&answer] { answer = PLGetLastUserEmailSharingResponse(); });
  info.GetReturnValue().Set(Nan::New<v8::Int32>(static_cast<int32_t>(answer)));
}

/// The context that `function` was made in; empty where the engine keeps none.
Local<Context> ContextOf(Local<Function> function) {
#if V8_MAJOR_VERSION >= 9
  return function->GetCreationContext().FromMaybe(Local<Context>());
#else
  return function->CreationContext();
#endif
}

/// Calls the script's callback once with `answer` and frees its holder.
void Deliver(Nan::Callback *callback, PLEmailSharingAnswer answer) {
  Isolate *isolate = Isolate::GetCurrent();
  // The answer may come from the main run loop, where the engine has neither open.
  HandleScope scope(isolate);
  Local<Function> function = callback->GetFunction();
  // Scripts may pass anything; what cannot be called is dropped.
  Local<Context> context;
  if (!function.IsEmpty() && function->IsFunction()) {
    context = isolate->InContext() ? isolate->GetCurrentContext() : ContextOf(function);
  }
  if (!context.IsEmpty()) {
    Context::Scope contextScope(context);
    Local<Value> arguments[] = {Nan::New<v8::Int32>(static_cast<int32_t>(answer))};
    Nan::AsyncResource resource("nan:Callback:Call");
    callback->Call(context->Global(), 1, arguments, &resource);
  }
  delete callback;
}

void _PLAskUserToShareEmail(const Arguments &info) {
  PLEmailSharingCompletion completion = nil;
  if (info.Length() >= 1) {
    Nan::Callback *callback = new Nan::Callback(info[0].As<Function>());
    // Released by hand: outside of `Guarded` there need not be a pool.
    completion = [^(PLEmailSharingAnswer answer) {
      Deliver(callback, answer);
    } copy];
  }
  BOOL isAsking = NO;
  Guarded([completion, &isAsking] { isAsking = PLAskUserToShareEmail(completion); });
  [completion release];
  info.GetReturnValue().Set(isAsking != NO);
}

void _PLEnableDebugLogging(const Arguments &info) {
  if (info.Length() < 1) {
    Nan::ThrowTypeError("Wrong number of arguments. Should be 1.");
    return;
  }
  if (!info[0]->IsBoolean()) {
    Nan::ThrowTypeError("Wrong argument type. Should be Boolean.");
    return;
  }
  const BOOL enable = info[0]->IsTrue() ? YES : NO;
  Guarded([enable] { PLEnableDebugLogging(enable); });
}

const struct {
  const char *name;
  v8::FunctionCallback handler;
} sFunctions[] = {
    {"PLShowReleaseNotesWindowIfNeeded", _PLShowReleaseNotesWindowIfNeeded},
    {"PLShowReleaseNotesWindow", _PLShowReleaseNotesWindow},
    {"PLCanShowReleaseNotesWindow", _PLCanShowReleaseNotesWindow},
    {"PLReportUsageEvent", _PLReportUsageEvent},
    {"PLGetLastUserEmailSharingResponse", _PLGetLastUserEmailSharingResponse},
    {"PLAskUserToShareEmail", _PLAskUserToShareEmail},
    {"PLEnableDebugLogging", _PLEnableDebugLogging},
};

void Init(Local<Object> exports, Local<Value>, void *) {
#if V8_MAJOR_VERSION < 14
  Isolate *isolate = exports->GetIsolate();
#else
  Isolate *isolate = Isolate::GetCurrent();
#endif
  Local<Context> context = isolate->GetCurrentContext();
  for (const auto &function : sFunctions) {
    Local<String> name =
        String::NewFromUtf8(isolate, function.name, NewStringType::kNormal).ToLocalChecked();
    Local<Function> value =
        FunctionTemplate::New(isolate, function.handler)->GetFunction(context).ToLocalChecked();
    exports->Set(context, name, value).FromMaybe(false);
  }
}

#ifdef PELLMAR_MODULE_VERSION
/// By this text scripts/package knows a file whose record is not of its headers' version.
__attribute__((used)) const char sForChecking[] = "pellmar: built for checking, not for shipping";
#else
#define PELLMAR_MODULE_VERSION NODE_MODULE_VERSION
#endif

// Headers with other settings than the engine's read its objects wrongly, and the application
// crashes.
static_assert(v8::internal::kApiTaggedSize == (PELLMAR_MODULE_VERSION == 85
                                                   ? v8::internal::kApiInt32Size
                                                   : v8::internal::kApiSystemPointerSize),
              "the engine of module version 85 compresses pointers, those of node do not");

node::node_module sModule = {
    PELLMAR_MODULE_VERSION,
    0,
    nullptr,
    "../pellmar-lib-mapping",
    Init,
    nullptr,
    "pellmar",
    nullptr,
    nullptr,
};

__attribute__((constructor)) void _register_pellmar() { node_module_register(&sModule); }

}  // namespace
