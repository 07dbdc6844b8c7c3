// Calls the client from native threads of the process that scripts run in, and counts what it holds there:
//
//   open(MODULE)         finds the client's functions in the module, which has to be loaded
//   call(KIND, CALL, THREADS, DELAY)
//                        has that many threads make the call together, that many milliseconds later; returns at once
//   drain(MARK)          prints an event once the main queue has run what is in it now
//   holdings(CLASSES)    how many objects there are of each class, and completions
//
// KIND is one of status, ask, code, event and notes. What becomes of thread N's call is printed as the events of
// script calls are, under the name CALL.N.

#include <dlfcn.h>
#include <node.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#import <Foundation/Foundation.h>
#import <Foundation/NSDebug.h>

#import "client/Pellmar.h"

namespace {

std::atomic<int> sCompletions{0};

}  // namespace

/// Lives for as long as the completion that has it.
@interface CompletionWitness : NSObject
@end

@implementation CompletionWitness
- (instancetype)init {
  self = [super init];
  ++sCompletions;
  return self;
}
- (void)dealloc {
  --sCompletions;
  [super dealloc];
}
@end

namespace {

using v8::FunctionCallbackInfo;
using v8::Local;
using v8::Value;

void *sModule;

// Not by an argument of the function's type: without optimization its address would be a relocation of this library.
#define CLIENT(name) reinterpret_cast<decltype(&name)>(dlsym(sModule, #name))

double Now() {
  return std::chrono::duration<double, std::milli>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

/// In one piece, whatever other threads print.
void Print(const std::string &call, const char *event, const std::string &more = "") {
  char line[400];
  const int length =
      std::snprintf(line, sizeof line, "{\"event\":\"%s\",\"call\":\"%s\",\"at\":%.3f%s}\n", event,
                    call.c_str(), Now(), more.c_str());
  (void)!write(STDOUT_FILENO, line, static_cast<size_t>(length));
}

std::string ValueOf(const std::string &text) { return ",\"value\":" + text; }

std::string OutcomeOf(NSString *code, NSError *error) {
  if (code) {
    return error ? "both" : [code isKindOfClass:NSString.class] ? "code" : "wrong class";
  }
  return error ? "error " + std::to_string(error.code) : "neither";
}

/// Makes the call, whose result it returns as JSON. The name is a copy: a block captures a reference as one.
std::string Make(const std::string &kind, std::string call) {
  if (kind == "status") {
    return std::to_string(CLIENT(PLGetLastUserEmailSharingResponse)());
  }
  if (kind == "event") {
    CLIENT(PLReportUsageEvent)(@(call.c_str()), @{@"of" : @"a native thread"});
    return "null";
  }
  if (kind == "notes") {
    CLIENT(PLShowReleaseNotesWindow)();
    return "null";
  }
  // Captured by the completions, which hold it.
  CompletionWitness *witness = [[[CompletionWitness alloc] init] autorelease];
  if (kind == "ask") {
    return CLIENT(PLAskUserToShareEmail)(^(PLEmailSharingAnswer answer) {
      (void)witness;
      Print(call, "callback", ValueOf(std::to_string(answer)));
    })
               ? "true"
               : "false";
  }
  CLIENT(PLRequestAuthorizationCode)
  (@"sequences", @[ @"application.access" ], ^(NSString *code, NSError *error) {
    (void)witness;
    Print(call, "callback", ValueOf("\"" + OutcomeOf(code, error) + "\""));
  });
  return "null";
}

std::string Text(v8::Isolate *isolate, Local<Value> value) {
  return *v8::String::Utf8Value(isolate, value);
}

void Open(const FunctionCallbackInfo<Value> &info) {
  sModule = dlopen(Text(info.GetIsolate(), info[0]).c_str(), RTLD_LAZY | RTLD_NOLOAD);
  GSDebugAllocationActive(YES);
  info.GetReturnValue().Set(sModule != nullptr);
}

void Call(const FunctionCallbackInfo<Value> &info) {
  v8::Isolate *isolate = info.GetIsolate();
  const std::string kind = Text(isolate, info[0]), name = Text(isolate, info[1]);
  const int threads = std::stoi(Text(isolate, info[2]));
  const std::chrono::milliseconds delay(std::stoi(Text(isolate, info[3])));
  auto waiting = std::make_shared<std::atomic<int>>(threads);
  for (int i = 0; i < threads; ++i) {
    std::thread([=] {
      const std::string call = name + "." + std::to_string(i);
      std::this_thread::sleep_for(delay);
      --*waiting;
      while (*waiting > 0) {
        std::this_thread::yield();
      }
      @autoreleasepool {
        Print(call, "called", ",\"from\":\"native\",\"kind\":\"" + kind + "\"");
        const std::string value = Make(kind, call);
        Print(call, "returned", ValueOf(value));
      }
    }).detach();
  }
}

void Drain(const FunctionCallbackInfo<Value> &info) {
  const std::string mark = Text(info.GetIsolate(), info[0]);
  dispatch_async(dispatch_get_main_queue(), ^{
    Print(mark, "drained");
  });
}

void Holdings(const FunctionCallbackInfo<Value> &info) {
  v8::Isolate *isolate = info.GetIsolate();
  Local<v8::Context> context = isolate->GetCurrentContext();
  Local<v8::Array> classes = info[0].As<v8::Array>();
  Local<v8::Object> counts = v8::Object::New(isolate);
  const auto set = [&](Local<Value> name, int count) {
    counts->Set(context, name, v8::Integer::New(isolate, count)).Check();
  };
  for (uint32_t i = 0; i < classes->Length(); ++i) {
    Local<Value> name = classes->Get(context, i).ToLocalChecked();
    Class counted = NSClassFromString(@(Text(isolate, name).c_str()));
    set(name, counted ? GSDebugAllocationCount(counted) : -1);
  }
  set(v8::String::NewFromUtf8Literal(isolate, "completions"), sCompletions);
  info.GetReturnValue().Set(counts);
}

}  // namespace

/// Called by node under this name when a script requires the add-on.
extern "C" NODE_MODULE_EXPORT void NODE_MODULE_INITIALIZER(Local<v8::Object> exports, Local<Value>,
                                                           Local<v8::Context>) {
  NODE_SET_METHOD(exports, "open", Open);
  NODE_SET_METHOD(exports, "call", Call);
  NODE_SET_METHOD(exports, "drain", Drain);
  NODE_SET_METHOD(exports, "holdings", Holdings);
}
