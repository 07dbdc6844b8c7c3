//
// Script functions that do as little as a native function can: what the module's own are measured
// against. Registered in the way in which the module registers its own. Besides, the clock for
// single calls.
//

#include <node.h>

#include "bench/call_clock.h"

namespace {

using v8::Context;
using v8::FunctionCallbackInfo;
using v8::FunctionTemplate;
using v8::Isolate;
using v8::Local;
using v8::Object;
using v8::String;
using v8::Value;

void Empty(const FunctionCallbackInfo<Value> &) {}

void ConvertToUtf8(const FunctionCallbackInfo<Value> &info) {
  const String::Utf8Value text(info.GetIsolate(), info[0]);
  // Keeps the compiler from leaving the conversion out.
  asm volatile("" : : "r"(*text) : "memory");
}

/// Of the thread that calls first.
CallClock &Clock() {
  static CallClock clock;
  return clock;
}

void StartCall(const FunctionCallbackInfo<Value> &) { Clock().Start(); }

void StopCall(const FunctionCallbackInfo<Value> &info) {
  info.GetReturnValue().Set(Clock().Stop());
}

void LongestStandstill(const FunctionCallbackInfo<Value> &info) {
  info.GetReturnValue().Set(Clock().longestStandstill());
}

void Init(Local<Object> exports, Local<Value>, void *) {
  Isolate *isolate = Isolate::GetCurrent();
  Local<Context> context = isolate->GetCurrentContext();
  const struct {
    const char *name;
    v8::FunctionCallback handler;
  } functions[] = {{"empty", Empty},
                   {"convertToUtf8", ConvertToUtf8},
                   {"startCall", StartCall},
                   {"stopCall", StopCall},
                   {"longestStandstill", LongestStandstill}};
  for (const auto &function : functions) {
    exports
        ->Set(
            context, String::NewFromUtf8(isolate, function.name).ToLocalChecked(),
            FunctionTemplate::New(isolate, function.handler)->GetFunction(context).ToLocalChecked())
        .Check();
  }
}

NODE_MODULE(bench_floor, Init)

}  // namespace
