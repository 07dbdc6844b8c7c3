//
// What the module's calls are measured against: script functions that do as little as one can, and
// a bare connection to the agent. Registered in the way in which the module registers its own.
//
// Besides, what counting needs under callgrind: dumps with a name, an authorization code, and when
// the client has nothing on its way any more.
//

#import <Foundation/Foundation.h>
#include <dlfcn.h>
#include <node.h>
#include <objc/runtime.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#import "client/AFXProvisioningService.h"
#import "client/Pellmar.h"

namespace {

using v8::Context;
using v8::FunctionCallbackInfo;
using v8::FunctionTemplate;
using v8::Isolate;
using v8::Local;
using v8::Object;
using v8::String;
using v8::Value;

using Arguments = FunctionCallbackInfo<Value>;

[[noreturn]] void Fail(const char *what) {
  fprintf(stderr, "bench: %s\n", what);
  exit(1);
}

/// A function as one of another type, which the compiler takes for a mistake in one step.
template <typename To, typename From>
To FunctionOf(From function) {
  return reinterpret_cast<To>(reinterpret_cast<void (*)()>(function));
}

std::string Text(const Arguments &info, int index) {
  return *String::Utf8Value(info.GetIsolate(), info[index]);
}

// --- Script functions and the connection -----------------------------------------------------------

void Empty(const Arguments &) {}

void Convert(const Arguments &info) {
  const String::Utf8Value text(info.GetIsolate(), info[0]);
  // Keeps the compiler from leaving the conversion out.
  asm volatile("" : : "r"(*text) : "memory");
}

NSXPCConnection *sConnection;
id<AFXProvisioningService> sService;

/// Opens a connection to the agent, or opens it anew.
void Connect(const Arguments &) {
  @autoreleasepool {
    [sService release];
    [sConnection invalidate];
    [sConnection release];
    sConnection =
        [[NSXPCConnection alloc] initWithMachServiceName:@"com.pellmar.ProvisioningService"
                                                 options:0];
    sConnection.remoteObjectInterface =
        [NSXPCInterface interfaceWithProtocol:@protocol(AFXProvisioningService)];
    [sConnection resume];
    sService = [[sConnection remoteObjectProxy] retain];
  }
}

void Send(const Arguments &info) {
  @autoreleasepool {
    const String::Utf8Value text(info.GetIsolate(), info[0]);
    [sService reportUsageEvent:[NSString stringWithUTF8String:*text] eventInfo:nil];
  }
}

/// A request, and the wait for its reply. The argument: whether it is the check.
void Ask(const Arguments &info) {
  @autoreleasepool {
    dispatch_semaphore_t replied = dispatch_semaphore_create(0);
    if (info[0]->IsTrue()) {
      [sService checkConnectionWithCallback:^(BOOL) {
        dispatch_semaphore_signal(replied);
      }];
    } else {
      [sService fetchAskingPermissionStatus:^(BOOL, NSString *) {
        dispatch_semaphore_signal(replied);
      }];
    }
    if (dispatch_semaphore_wait(replied, dispatch_time(DISPATCH_TIME_NOW, 30 * NSEC_PER_SEC))) {
      Fail("a bare connection has no answer");
    }
    dispatch_release(replied);
  }
}

// --- Counting --------------------------------------------------------------------------------------

void Start(const Arguments &) { CALLGRIND_START_INSTRUMENTATION; }

/// Ends what is counted under the name given, and begins anew.
void Dump(const Arguments &info) {
  const std::string name = Text(info, 0);
  CALLGRIND_DUMP_STATS_AT(name.c_str());
}

/// The module's functions for native callers. The first argument of a call is the module's file.
template <typename Function>
Function *Native(const Arguments &info, const char *name) {
  return FunctionOf<Function *>(
      reinterpret_cast<void (*)()>(dlsym(dlopen(Text(info, 0).c_str(), RTLD_LAZY), name)));
}

void Event(const Arguments &info) {
  static const auto report = Native<decltype(PLReportUsageEvent)>(info, "PLReportUsageEvent");
  @autoreleasepool {
    report(@"20 characters, or so", nil);
  }
}

/// Asks for an authorization code and waits for it.
void Code(const Arguments &info) {
  static const auto request =
      Native<decltype(PLRequestAuthorizationCode)>(info, "PLRequestAuthorizationCode");
  @autoreleasepool {
    dispatch_semaphore_t given = dispatch_semaphore_create(0);
    request(@"client", @[ @"application.access" ], ^(NSString *code, NSError *) {
      if (!code) {
        Fail("the agent gave no code");
      }
      dispatch_semaphore_signal(given);
    });
    dispatch_semaphore_wait(given, DISPATCH_TIME_FOREVER);
    dispatch_release(given);
  }
}

/// Prints where the methods of all classes are, as callgrind says it of a library without symbols:
/// the library, the place in it, and the name. The argument: the file to print to.
void Methods(const Arguments &info) {
  FILE *file = fopen(Text(info, 0).c_str(), "w");
  std::vector<Class> classes(static_cast<size_t>(objc_getClassList(nullptr, 0)));
  objc_getClassList(classes.data(), static_cast<int>(classes.size()));
  for (size_t i = 0; i < 2 * classes.size(); ++i) {
    const bool isMeta = i % 2;
    Class owner = isMeta ? object_getClass(classes[i / 2]) : classes[i / 2];
    unsigned count = 0;
    Method *methods = class_copyMethodList(owner, &count);
    for (unsigned k = 0; k < count; ++k) {
      const char *place = reinterpret_cast<const char *>(method_getImplementation(methods[k]));
      Dl_info image;
      if (dladdr(place, &image)) {
        fprintf(file, "%s\t0x%016tx\t%c%s %s\n", image.dli_fname,
                place - static_cast<const char *>(image.dli_fbase), isMeta ? '+' : '-',
                class_getName(owner), sel_getName(method_getName(methods[k])));
      }
    }
    free(methods);
  }
  fclose(file);
}

/// How often the client has heard the agent's reply to a check.
std::atomic<int64_t> sReplies;

/// Has `sReplies` count the calls of a method that takes `Arguments`.
template <typename... Arguments>
void CountCalls(const char *name, SEL selector) {
  using Function = void (*)(id, SEL, Arguments...);
  Method method = class_getInstanceMethod(objc_getClass(name), selector);
  if (!method) {
    Fail("the client has other methods than those that are looked at");
  }
  static const auto former = FunctionOf<Function>(method_getImplementation(method));
  const Function counting = [](id self, SEL called, Arguments... arguments) {
    former(self, called, arguments...);
    ++sReplies;
  };
  method_setImplementation(method, FunctionOf<IMP>(counting));
}

void WatchReplies(const Arguments &) {
  CountCalls<uint64_t>("AFXServiceAccessor", @selector(admitWaitersOfGeneration:));
  CountCalls<uint64_t, uint64_t>("AFXUsageReporter", @selector(noteTaken:ofGeneration:));
}

/// Waits for one more reply: a check follows each request.
void AwaitReply(const Arguments &) {
  static int64_t awaited;
  ++awaited;
  for (int tries = 0; sReplies < awaited; ++tries) {
    if (tries == 60'000) {
      Fail("the agent does not answer");
    }
    usleep(1000);
  }
}

/// Sleeps for so many milliseconds.
void Rest(const Arguments &info) {
  usleep(static_cast<useconds_t>(info[0].As<v8::Number>()->Value() * 1000));
}

void Init(Local<Object> exports, Local<Value>, void *) {
  Isolate *isolate = Isolate::GetCurrent();
  Local<Context> context = isolate->GetCurrentContext();
  const struct {
    const char *name;
    v8::FunctionCallback handler;
  } functions[] = {{"empty", Empty},
                   {"convert", Convert},
                   {"connect", Connect},
                   {"send", Send},
                   {"ask", Ask},
                   {"start", Start},
                   {"dump", Dump},
                   {"event", Event},
                   {"code", Code},
                   {"methods", Methods},
                   {"watchReplies", WatchReplies},
                   {"awaitReply", AwaitReply},
                   {"rest", Rest}};
  for (const auto &function : functions) {
    exports
        ->Set(
            context, String::NewFromUtf8(isolate, function.name).ToLocalChecked(),
            FunctionTemplate::New(isolate, function.handler)->GetFunction(context).ToLocalChecked())
        .Check();
  }
}

}  // namespace

NODE_MODULE(bench_floors, Init)
