#include "protocol_methods.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

#import "PlatformXPCConnection.h"
#import "PlatformXPCProxy.h"
#include "wire.h"

namespace platform::xpc {

namespace {

/// The types of `method` as this runtime reads them: it ends the process at the '?' of a block when
/// a message is forwarded or a method signature made.
std::string RuntimeTypes(const Method &method) {
  std::string types = method.signature->text();
  types.erase(std::remove(types.begin(), types.end(), '?'), types.end());
  return types;
}

/// The code of a proxy's methods.
void Send(ffi_cif *, void *, void **arguments, void *data) {
  auto *proxy = *static_cast<PlatformXPCProxy **>(arguments[0]);
  const auto &method = *static_cast<const Method *>(data);
  (*proxy->_connection->_core)
      ->SendMessage(method, proxy->_interface, arguments + 2, proxy->_errorHandler);
}

/// Returns code that sends `method`, or nullptr when there is no memory for it.
IMP MakeCode(const Method &method) {
  void *code = nullptr;
  auto *closure = static_cast<ffi_closure *>(ffi_closure_alloc(sizeof(ffi_closure), &code));
  if (!closure || ffi_prep_closure_loc(closure, method.signature->cif(), Send,
                                       const_cast<Method *>(&method), code) != FFI_OK) {
    return nullptr;
  }
  return reinterpret_cast<IMP>(code);
}

}  // namespace

const ProtocolMethods *ProtocolMethods::Of(Protocol *protocol) {
  static std::mutex mutex;
  static auto *known = new std::unordered_map<void *, const ProtocolMethods *>;
  {
    std::lock_guard<std::mutex> lock(mutex);
    auto found = known->find(protocol);
    if (found != known->end()) return found->second;
  }
  if (!protocol) {
    [NSException raise:NSInvalidArgumentException format:@"An interface needs a protocol"];
  }
  std::unique_ptr<ProtocolMethods> methods(new ProtocolMethods(protocol));
  methods->AddProtocol(protocol);
  methods->MakeProxyClass();
  std::lock_guard<std::mutex> lock(mutex);
  // Of two threads that come here together, one's work stays unused.
  return known->emplace(protocol, methods.release()).first->second;
}

void ProtocolMethods::AddProtocol(Protocol *protocol) {
  if (std::strcmp(protocol_getName(protocol), "NSObject") == 0) return;
  for (BOOL required : {YES, NO}) {
    unsigned count = 0;
    objc_method_description *descriptions =
        protocol_copyMethodDescriptionList(protocol, required, YES, &count);
    std::unique_ptr<objc_method_description, decltype(&free)> owner(descriptions, &free);
    for (unsigned i = 0; i < count; ++i) AddMethod(descriptions[i]);
  }
  unsigned count = 0;
  Protocol **adopted = protocol_copyProtocolList(protocol, &count);
  std::unique_ptr<Protocol *, decltype(&free)> owner(adopted, &free);
  for (unsigned i = 0; i < count; ++i) AddProtocol(adopted[i]);
}

void ProtocolMethods::AddMethod(const objc_method_description &description) {
  std::string name = sel_getName(description.name);
  if (methods_.count(name)) return;
  std::unique_ptr<Method> method(new Method);
  method->name = std::move(name);
  method->signature = Signature::Parse(Signature::Form::kMethod, description.types);
  unsigned blocks = 0;
  if (method->signature) {
    const auto &arguments = method->signature->arguments();
    for (size_t i = 0; i < arguments.size(); ++i) {
      if (arguments[i].kind != TypeKind::kBlock) continue;
      method->reply = static_cast<int>(i);
      ++blocks;
    }
  }
  if (!method->signature || blocks > 1) {
    [NSException
         raise:NSInvalidArgumentException
        format:@"%s of the protocol %s cannot be sent over a connection: it must return void "
               @"and take objects, scalars and at most one block",
               method->name.c_str(), protocol_getName(protocol_)];
  }
  Writer beginning;
  beginning.PutNumber(0);
  beginning.PutText(method->name);
  beginning.PutNumber(method->signature->arguments().size());
  method->beginning.assign(reinterpret_cast<const char *>(beginning.data()), beginning.size());
  method->selector = sel_registerTypedName(method->name.c_str(), RuntimeTypes(*method).c_str());
  std::string_view key = method->name;
  methods_.emplace(key, std::move(method));
}

const Method *ProtocolMethods::Find(std::string_view selector) const {
  auto found = methods_.find(selector);
  return found == methods_.end() ? nullptr : found->second.get();
}

/// A message that was forwarded would be described by the types that the compiler left in its
/// selector, and this runtime ends the process at the '?' of a block in them.
void ProtocolMethods::MakeProxyClass() {
  static std::atomic<unsigned> number{0};
  std::string name =
      "PlatformXPCProxy_" + std::string(protocol_getName(protocol_)) + std::to_string(++number);
  Class made = objc_allocateClassPair([PlatformXPCProxy class], name.c_str(), 0);
  for (auto &entry : methods_) {
    const Method &method = *entry.second;
    IMP code = MakeCode(method);
    if (!code) [NSException raise:NSMallocException format:@"No memory for a proxy's methods"];
    class_addMethod(made, method.selector, code, RuntimeTypes(method).c_str());
  }
  objc_registerClassPair(made);
  class_addProtocol(made, protocol_);
  proxyClass_ = made;
}

}  // namespace platform::xpc
