// Tells a script what its process holds: `usage()` gives the bytes that are allocated with malloc
// and those of anonymous memory that the system counts for the process.

#include <malloc.h>
#include <node.h>

#include <cstdio>
#include <cstring>

namespace {

/// A line of the process's own summary, in bytes.
double Resident(const char *name) {
  double kilobytes = 0;
  if (std::FILE *file = std::fopen("/proc/self/smaps_rollup", "re")) {
    char line[256];
    while (std::fgets(line, sizeof line, file)) {
      if (std::strncmp(line, name, std::strlen(name)) == 0) {
        std::sscanf(line + std::strlen(name), " %lf", &kilobytes);
      }
    }
    std::fclose(file);
  }
  return kilobytes * 1024;
}

void Usage(const v8::FunctionCallbackInfo<v8::Value> &info) {
  v8::Isolate *isolate = info.GetIsolate();
  v8::Local<v8::Context> context = isolate->GetCurrentContext();
  // What is free but still the process's would otherwise count, as much as happened to be freed.
  malloc_trim(0);
  const struct mallinfo2 heap = mallinfo2();
  v8::Local<v8::Object> usage = v8::Object::New(isolate);
  const auto set = [&](const char *name, double value) {
    usage
        ->Set(context, v8::String::NewFromUtf8(isolate, name).ToLocalChecked(),
              v8::Number::New(isolate, value))
        .Check();
  };
  set("allocated", static_cast<double>(heap.uordblks + heap.hblkhd));
  set("anonymous", Resident("Anonymous:"));
  info.GetReturnValue().Set(usage);
}

}  // namespace

/// Called by node under this name when a script requires the add-on.
extern "C" NODE_MODULE_EXPORT void NODE_MODULE_INITIALIZER(v8::Local<v8::Object> exports,
                                                           v8::Local<v8::Value>,
                                                           v8::Local<v8::Context>) {
  NODE_SET_METHOD(exports, "usage", Usage);
}
