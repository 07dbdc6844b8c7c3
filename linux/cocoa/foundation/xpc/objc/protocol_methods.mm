#import "protocol_methods.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "wire/wire.h"

namespace platform::xpc {

namespace {

struct OptionalMethods {
  int count;
  struct {
    const char *name;
    const char *types;
  } methods[1];
};

/// A protocol as clang writes it down. This runtime knows its beginning, which is all that gcc
/// writes, and finds no optional methods in it.
struct ProtocolRecord {
  void *known[5];
  const OptionalMethods *optional;
};

}  // namespace

const ProtocolMethods *ProtocolMethods::of(Protocol *protocol) {
  static std::mutex mutex;
  // By name: each file that mentions a protocol has its own.
  static auto *known = new std::unordered_map<std::string_view, const ProtocolMethods *>;
  if (!protocol) {
    [NSException raise:NSInvalidArgumentException format:@"An interface needs a protocol"];
  }
  const char *name = protocol_getName(protocol);
  {
    std::lock_guard<std::mutex> lock(mutex);
    auto found = known->find(name);
    if (found != known->end()) {
      return found->second;
    }
  }
  std::unique_ptr<ProtocolMethods> methods(new ProtocolMethods(protocol));
  methods->addProtocol(protocol);
  std::lock_guard<std::mutex> lock(mutex);
  // Of two threads that come here together, one's work is not needed.
  const ProtocolMethods *&place = (*known)[name];
  if (!place) {
    place = methods.release();
  }
  return place;
}

void ProtocolMethods::addProtocol(Protocol *protocol) {
  if (std::strcmp(protocol_getName(protocol), "NSObject") == 0) {
    return;
  }
  unsigned count = 0;
  objc_method_description *descriptions =
      protocol_copyMethodDescriptionList(protocol, YES, YES, &count);
  std::unique_ptr<objc_method_description, decltype(&free)> owned(descriptions, &free);
  for (unsigned i = 0; i < count; ++i) {
    addMethod(sel_getName(descriptions[i].name), descriptions[i].types);
  }
  const auto *record = reinterpret_cast<const ProtocolRecord *>(protocol);
  if (const OptionalMethods *optional = record->optional) {
    for (int i = 0; i < optional->count; ++i) {
      addMethod(optional->methods[i].name, optional->methods[i].types);
    }
  }
  Protocol **adopted = protocol_copyProtocolList(protocol, &count);
  std::unique_ptr<Protocol *, decltype(&free)> owner(adopted, &free);
  for (unsigned i = 0; i < count; ++i) {
    addProtocol(adopted[i]);
  }
}

void ProtocolMethods::addMethod(const char *name, const char *types) {
  if (methods_.count(name)) {
    return;
  }
  std::unique_ptr<Method> method(new Method);
  method->name = name;
  method->signature = Signature::parse(Signature::Form::kMethod, types);
  unsigned blocks = 0;
  if (method->signature) {
    const auto &arguments = method->signature->arguments();
    for (size_t i = 0; i < arguments.size(); ++i) {
      if (arguments[i].kind != TypeKind::kBlock) {
        continue;
      }
      method->reply = static_cast<int>(i);
      ++blocks;
    }
  }
  if (!method->signature || blocks > 1 || method->name.size() > kMaximumName) {
    [NSException
         raise:NSInvalidArgumentException
        format:@"%s of the protocol %s cannot be sent over a connection: it must return void "
               @"and take objects, scalars and at most one block, and its name must not be longer "
               @"than %zu characters",
               method->name.c_str(), protocol_getName(protocol_), kMaximumName];
  }
  method->types = method->signature->text();
  method->types.erase(std::remove(method->types.begin(), method->types.end(), '?'),
                      method->types.end());
  method->selector = sel_registerTypedName(method->name.c_str(), method->types.c_str());
  std::string_view key = method->name;
  methods_.emplace(key, std::move(method));
}

const Method *ProtocolMethods::find(std::string_view selector) const {
  auto found = methods_.find(selector);
  return found == methods_.end() ? nullptr : found->second.get();
}

}  // namespace platform::xpc
