// The types of a method or a block, read from the compiler's encoding and made ready for libffi.

#ifndef PLATFORM_XPC_SIGNATURE_H
#define PLATFORM_XPC_SIGNATURE_H

#include <ffi.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform::xpc {

enum class TypeKind : uint8_t { kVoid, kObject, kBlock, kSigned, kUnsigned, kBool, kFloating };

struct Type {
  TypeKind kind;
  uint8_t size;  ///< In bytes; 0 for void.
  ffi_type *ffi;
};

/// Room for one argument of any type here; libffi reads the first bytes of it.
union Slot {
  void *pointer;
  int64_t asSigned;
  uint64_t asUnsigned;
  float asFloat;
  double asDouble;
};

class Signature {
 public:
  enum class Form { kMethod, kBlock };

  /// Returns nullptr where `encoding` is malformed or has a type that cannot travel (only void is
  /// returned; arguments are objects, blocks and scalars).
  static std::unique_ptr<Signature> parse(Form form, std::string_view encoding);

  Signature(const Signature &) = delete;
  Signature &operator=(const Signature &) = delete;

  /// Without the hidden ones (receiver and selector of a method, the block itself).
  const std::vector<Type> &arguments() const { return arguments_; }
  size_t hidden() const { return hidden_; }
  /// Describes the call with its hidden arguments.
  ffi_cif *cif() const { return const_cast<ffi_cif *>(&cif_); }
  /// The encoding without offsets, qualifiers and class names: equal for equal calls.
  const std::string &text() const { return text_; }
  /// Whether a value for each argument of one can be a value for that of the other. Integers count as
  /// one: BOOL is another on a Mac's x86_64 than on its arm64 and here.
  bool takesKindsOf(const Signature &other) const;

 private:
  Signature() = default;

  std::vector<Type> arguments_;
  std::vector<ffi_type *> ffiTypes_;
  size_t hidden_ = 0;
  ffi_cif cif_;
  std::string text_;
};

/// Stores a scalar in `slot` as an argument of `type`. Returns false when it does not fit.
bool StoreSigned(const Type &type, int64_t value, Slot *slot);
bool StoreUnsigned(const Type &type, uint64_t value, Slot *slot);
bool StoreFloating(const Type &type, double value, Slot *slot);

}  // namespace platform::xpc

#endif
