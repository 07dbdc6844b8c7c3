// A module for node on Linux that brings the Mac's module into the process: the bundle that
// PELLMAR_MACHO names. The bundle registers itself with node from its own initializer, as on a Mac.
// One that is refused is not run: requiring the module throws an error that says why.
//
// The constructor here uses what the other files construct: this one is linked last.

#include <fcntl.h>
#include <node.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "fixups.h"
#include "image.h"
#include "imports.h"
#include "objc_reader.h"
#include "objc_runtime.h"
#include "unwinding.h"

namespace {

/// A file that is closed again.
class OpenFile {
 public:
  explicit OpenFile(const char *path) : descriptor_(open(path, O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0) {
      macho::Refuse("it cannot be opened: %s", std::strerror(errno));
    }
  }
  ~OpenFile() { close(descriptor_); }
  OpenFile(const OpenFile &) = delete;
  OpenFile &operator=(const OpenFile &) = delete;

  int descriptor() const { return descriptor_; }

  /// All of it. Stays mapped, for what is read from it points into it.
  macho::Bytes map() const {
    struct stat facts{};
    fstat(descriptor_, &facts);
    const auto size = static_cast<size_t>(facts.st_size);
    void *content = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor_, 0);
    if (content == MAP_FAILED) {
      macho::Refuse("it cannot be mapped: %s", std::strerror(errno));
    }
    return {content, size, "the file"};
  }

 private:
  const int descriptor_;
};

// Pointers, for the constructor below may run before those of this file's own variables.
macho::Image *sImage;
const char *sRefusal;

void ThrowRefusal(v8::Local<v8::Object>, v8::Local<v8::Value>, void *) {
  v8::Isolate *isolate = v8::Isolate::GetCurrent();
  isolate->ThrowException(v8::Exception::Error(
      v8::String::NewFromUtf8(isolate, sRefusal, v8::NewStringType::kNormal).ToLocalChecked()));
}

node::node_module sRefusingModule = {
    NODE_MODULE_VERSION, 0,       nullptr, __FILE__, ThrowRefusal, nullptr,
    "macho_loader",      nullptr, nullptr,
};

void RunInitializers(const macho::Image &image, int count, char **arguments, char **environment) {
  using Initializer = void (*)(int, char **, char **, char **);
  for (const macho::Section &section : image.file().sections) {
    if (!section.hasInitializers) {
      continue;
    }
    for (uintptr_t function : image.arrayOf<uintptr_t>(section)) {
      reinterpret_cast<Initializer>(image.code(function))(count, arguments, environment, nullptr);
    }
  }
}

__attribute__((constructor)) void LoadBundle(int count, char **arguments, char **environment) {
  const char *path = std::getenv("PELLMAR_MACHO");
  try {
    if (!path) {
      macho::Refuse("PELLMAR_MACHO names no bundle");
    }
    OpenFile file(path);
    // Never unmapped: what the process is going to learn points into it.
    auto *image = new macho::Image(macho::ReadMachoFile(file.map()), file.descriptor());
    // Everything is read and checked before the process learns of any of it.
    macho::ApplyFixups(*image, macho::Resolve);
    auto *objectiveC = new macho::ObjectiveC(macho::ReadObjectiveC(*image));
    auto frames = macho::DescribeFrames(*image);
    macho::RegisterObjectiveC(*objectiveC);
    macho::RegisterFrames(std::move(frames));
    image->protect();
    sImage = image;
    RunInitializers(*image, count, arguments, environment);
  } catch (const macho::Refusal &refusal) {
    const std::string text = std::string(path ? path : "macho loader") + ": " + refusal.what();
    sRefusal = strdup(text.c_str());
    node_module_register(&sRefusingModule);
  }
}

}  // namespace

/// For native code of the tests in this process: what the bundle exports under `name`, as C knows
/// it.
extern "C" __attribute__((visibility("default"))) void *macho_exported(const char *name) {
  if (!sImage) {
    return nullptr;
  }
  const auto &exports = sImage->file().exports;
  const auto found = exports.find(std::string("_") + name);
  return found == exports.end() ? nullptr
                                : reinterpret_cast<void *>(sImage->base() + found->second);
}
