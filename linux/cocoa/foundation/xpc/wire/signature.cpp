#include "signature.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "wire.h"

namespace platform::xpc {

namespace {

struct Code {
  char code;
  Type type;
};

// The selector of a method is none of its arguments, and cannot be one.
const Code kCodes[] = {
    {'v', {TypeKind::kVoid, 0, &ffi_type_void}},
    {':', {TypeKind::kVoid, 8, &ffi_type_pointer}},
    {'@', {TypeKind::kObject, 8, &ffi_type_pointer}},
    {'B', {TypeKind::kBool, 1, &ffi_type_uint8}},
    {'c', {TypeKind::kSigned, 1, &ffi_type_sint8}},
    {'C', {TypeKind::kUnsigned, 1, &ffi_type_uint8}},
    {'s', {TypeKind::kSigned, 2, &ffi_type_sint16}},
    {'S', {TypeKind::kUnsigned, 2, &ffi_type_uint16}},
    {'i', {TypeKind::kSigned, 4, &ffi_type_sint32}},
    {'I', {TypeKind::kUnsigned, 4, &ffi_type_uint32}},
    {'l', {TypeKind::kSigned, 8, &ffi_type_sint64}},
    {'L', {TypeKind::kUnsigned, 8, &ffi_type_uint64}},
    {'q', {TypeKind::kSigned, 8, &ffi_type_sint64}},
    {'Q', {TypeKind::kUnsigned, 8, &ffi_type_uint64}},
    {'f', {TypeKind::kFloating, 4, &ffi_type_float}},
    {'d', {TypeKind::kFloating, 8, &ffi_type_double}},
};

/// Moves behind the signature in angle brackets that `**at` opens. Returns false where it is open.
bool SkipSignature(const char **at, const char *end) {
  unsigned open = 0;
  do {
    if (*at == end) {
      return false;
    }
    open += **at == '<';
    open -= **at == '>';
    ++*at;
  } while (open);
  return true;
}

/// Reads one type at `*at` and moves behind it, its class name or block signature and its offset.
bool ReadType(const char **at, const char *end, Type *type, std::string *text) {
  const char *p = *at;
  while (p < end && std::strchr("rnNoORV", *p)) {
    ++p;
  }
  const char code = p < end ? *p++ : '\0';
  const Code *known = std::find_if(std::begin(kCodes), std::end(kCodes),
                                   [&](const Code &each) { return each.code == code; });
  if (known == std::end(kCodes)) {
    return false;
  }
  *type = known->type;
  if (code == '@' && p < end && *p == '?') {
    type->kind = TypeKind::kBlock;
    ++p;
    if (p < end && *p == '<' && !SkipSignature(&p, end)) {
      return false;
    }
  } else if (code == '@' && p < end && *p == '"') {
    p = std::find(p + 1, end, '"');
    if (p++ == end) {
      return false;
    }
  }
  text->push_back(code);
  if (type->kind == TypeKind::kBlock) {
    text->push_back('?');
  }
  while (p < end && ((*p >= '0' && *p <= '9') || *p == '+' || *p == '-')) {
    ++p;
  }
  *at = p;
  return true;
}

}  // namespace

std::unique_ptr<Signature> Signature::parse(Form form, std::string_view encoding) {
  const char *at = encoding.data();
  const char *end = at + encoding.size();
  std::unique_ptr<Signature> signature(new Signature);
  Type type;
  if (!ReadType(&at, end, &type, &signature->text_) || type.kind != TypeKind::kVoid || type.size) {
    return nullptr;
  }
  signature->hidden_ = form == Form::kMethod ? 2 : 1;
  while (at < end) {
    if (!ReadType(&at, end, &type, &signature->text_)) {
      return nullptr;
    }
    signature->ffiTypes_.push_back(type.ffi);
    size_t index = signature->ffiTypes_.size() - 1;
    if (index >= signature->hidden_) {
      if (type.kind == TypeKind::kVoid) {
        return nullptr;
      }
      signature->arguments_.push_back(type);
    } else if (type.ffi != &ffi_type_pointer) {
      return nullptr;
    }
  }
  if (signature->ffiTypes_.size() < signature->hidden_ ||
      signature->arguments_.size() > kMaximumArguments ||
      ffi_prep_cif(&signature->cif_, FFI_DEFAULT_ABI,
                   static_cast<unsigned>(signature->ffiTypes_.size()), &ffi_type_void,
                   signature->ffiTypes_.data()) != FFI_OK) {
    return nullptr;
  }
  return signature;
}

bool Signature::takesKindsOf(const Signature &other) const {
  const auto isInteger = [](const Type &type) {
    return type.kind == TypeKind::kSigned || type.kind == TypeKind::kUnsigned ||
           type.kind == TypeKind::kBool;
  };
  return std::equal(arguments_.begin(), arguments_.end(), other.arguments_.begin(),
                    other.arguments_.end(), [&](const Type &one, const Type &another) {
                      return one.kind == another.kind || (isInteger(one) && isInteger(another));
                    });
}

bool StoreSigned(const Type &type, int64_t value, Slot *slot) {
  if (type.kind == TypeKind::kUnsigned || type.kind == TypeKind::kBool) {
    return value >= 0 && StoreUnsigned(type, static_cast<uint64_t>(value), slot);
  }
  const int64_t most = INT64_MAX >> (64 - 8 * type.size);
  if (type.kind != TypeKind::kSigned || value > most || value < -most - 1) {
    return false;
  }
  slot->asSigned = value;
  return true;
}

bool StoreUnsigned(const Type &type, uint64_t value, Slot *slot) {
  if (type.kind == TypeKind::kSigned) {
    return value <= INT64_MAX && StoreSigned(type, static_cast<int64_t>(value), slot);
  }
  const uint64_t most = type.kind == TypeKind::kBool ? 1 : UINT64_MAX >> (64 - 8 * type.size);
  if ((type.kind != TypeKind::kUnsigned && type.kind != TypeKind::kBool) || value > most) {
    return false;
  }
  slot->asUnsigned = value;
  return true;
}

bool StoreFloating(const Type &type, double value, Slot *slot) {
  if (type.kind != TypeKind::kFloating) {
    return false;
  }
  if (type.size == 4) {
    slot->asFloat = static_cast<float>(value);
  } else {
    slot->asDouble = value;
  }
  return true;
}

}  // namespace platform::xpc
