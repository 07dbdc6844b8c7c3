#include "proxy_methods.h"

#include <array>
#include <atomic>
#include <utility>

#import "PlatformXPCConnection.h"
#import "PlatformXPCProxy.h"

namespace platform::xpc {

namespace {

void Send(PlatformXPCProxy *proxy, const Method &method, void *const *arguments) {
  (*proxy->_connection->_core)
      ->SendMessage(method, proxy->_interface, arguments, proxy->_errorHandler);
}

/// The code of a closure, for arguments of any types.
void SendFromClosure(ffi_cif *, void *, void **arguments, void *method) {
  Send(*static_cast<PlatformXPCProxy **>(arguments[0]), *static_cast<const Method *>(method),
       arguments + 2);
}

// A closure takes hundreds of instructions, a quarter of what a message costs in all. Methods that
// take nothing but objects and blocks, as nearly all do, have compiled code instead: one function
// for each number of arguments and each place in a table of methods.
constexpr size_t kPlaces = 32;
constexpr size_t kMostPointers = 4;

const Method *places[kPlaces];

template <size_t Place, typename... Pointers>
void SendPointers(PlatformXPCProxy *proxy, SEL, Pointers... pointers) {
  void *arguments[] = {&pointers..., nullptr};
  Send(proxy, *places[Place], arguments);
}

/// Through a plain function's type, as the compiler wants it between two that differ.
template <typename Function>
IMP Code(Function *function) {
  return reinterpret_cast<IMP>(reinterpret_cast<void (*)()>(function));
}

template <size_t Place>
IMP SendingPointers(size_t count) {
  switch (count) {
    case 0:
      return Code(&SendPointers<Place>);
    case 1:
      return Code(&SendPointers<Place, void *>);
    case 2:
      return Code(&SendPointers<Place, void *, void *>);
    case 3:
      return Code(&SendPointers<Place, void *, void *, void *>);
    default:
      return Code(&SendPointers<Place, void *, void *, void *, void *>);
  }
}

template <size_t... Places>
constexpr std::array<IMP (*)(size_t), kPlaces> Makers(std::index_sequence<Places...>) {
  return {&SendingPointers<Places>...};
}

bool TakesPointersOnly(const Signature &signature) {
  if (signature.arguments().size() > kMostPointers) return false;
  for (const Type &type : signature.arguments()) {
    if (type.kind != TypeKind::kObject && type.kind != TypeKind::kBlock) return false;
  }
  return true;
}

}  // namespace

IMP MakeProxyMethod(const Method &method) {
  static constexpr auto makers = Makers(std::make_index_sequence<kPlaces>());
  static std::atomic<size_t> used{0};
  if (TakesPointersOnly(*method.signature)) {
    const size_t place = used.fetch_add(1);
    if (place < kPlaces) {
      places[place] = &method;
      return makers[place](method.signature->arguments().size());
    }
    used.store(kPlaces);
  }
  void *code = nullptr;
  auto *closure = static_cast<ffi_closure *>(ffi_closure_alloc(sizeof(ffi_closure), &code));
  if (!closure || ffi_prep_closure_loc(closure, method.signature->cif(), SendFromClosure,
                                       const_cast<Method *>(&method), code) != FFI_OK) {
    return nullptr;
  }
  return reinterpret_cast<IMP>(code);
}

}  // namespace platform::xpc
