#include "signature.h"

#include <cstring>

#include "wire.h"

namespace platform::xpc {

namespace {

/// Reads one type at `*at` and moves behind it, its class name or block signature and its offset.
bool ReadType(const char **at, const char *end, Type *type, std::string *text) {
  const char *p = *at;
  while (p < end && std::strchr("rnNoORV", *p)) {
    ++p;
  }
  if (p == end) {
    return false;
  }
  char code = *p++;
  switch (code) {
    case 'v':
      *type = {TypeKind::kVoid, 0, &ffi_type_void};
      break;
    case 'B':
      *type = {TypeKind::kBool, 1, &ffi_type_uint8};
      break;
    case 'c':
      *type = {TypeKind::kSigned, 1, &ffi_type_sint8};
      break;
    case 'C':
      *type = {TypeKind::kUnsigned, 1, &ffi_type_uint8};
      break;
    case 's':
      *type = {TypeKind::kSigned, 2, &ffi_type_sint16};
      break;
    case 'S':
      *type = {TypeKind::kUnsigned, 2, &ffi_type_uint16};
      break;
    case 'i':
      *type = {TypeKind::kSigned, 4, &ffi_type_sint32};
      break;
    case 'I':
      *type = {TypeKind::kUnsigned, 4, &ffi_type_uint32};
      break;
    case 'l':
    case 'q':
      *type = {TypeKind::kSigned, 8, &ffi_type_sint64};
      break;
    case 'L':
    case 'Q':
      *type = {TypeKind::kUnsigned, 8, &ffi_type_uint64};
      break;
    case 'f':
      *type = {TypeKind::kFloating, 4, &ffi_type_float};
      break;
    case 'd':
      *type = {TypeKind::kFloating, 8, &ffi_type_double};
      break;
    case ':':
      *type = {TypeKind::kVoid, 8, &ffi_type_pointer};
      break;
    case '@':
      *type = {TypeKind::kObject, 8, &ffi_type_pointer};
      if (p < end && *p == '?') {
        type->kind = TypeKind::kBlock;
        ++p;
        if (p < end && *p == '<') {
          unsigned open = 0;
          do {
            if (*p == '<') {
              ++open;
            }
            if (*p == '>') {
              --open;
            }
            ++p;
          } while (p < end && open);
          if (open) {
            return false;
          }
        }
      } else if (p < end && *p == '"') {
        const char *quote = static_cast<const char *>(std::memchr(p + 1, '"', end - p - 1));
        if (!quote) {
          return false;
        }
        p = quote + 1;
      }
      break;
    default:
      return false;
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

std::unique_ptr<Signature> Signature::Parse(Form form, std::string_view encoding) {
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
  if (signature->ffiTypes_.size() < signature->hidden_) {
    return nullptr;
  }
  if (signature->arguments_.size() > kMaximumArguments) {
    return nullptr;
  }
  if (ffi_prep_cif(&signature->cif_, FFI_DEFAULT_ABI,
                   static_cast<unsigned>(signature->ffiTypes_.size()), &ffi_type_void,
                   signature->ffiTypes_.data()) != FFI_OK) {
    return nullptr;
  }
  return signature;
}

bool StoreSigned(const Type &type, int64_t value, Slot *slot) {
  if (type.kind == TypeKind::kUnsigned || type.kind == TypeKind::kBool) {
    return value >= 0 && StoreUnsigned(type, static_cast<uint64_t>(value), slot);
  }
  if (type.kind != TypeKind::kSigned) {
    return false;
  }
  switch (type.size) {
    case 1:
      if (value != static_cast<int8_t>(value)) {
        return false;
      }
      break;
    case 2:
      if (value != static_cast<int16_t>(value)) {
        return false;
      }
      break;
    case 4:
      if (value != static_cast<int32_t>(value)) {
        return false;
      }
      break;
    default:
      break;
  }
  slot->asSigned = value;
  return true;
}

bool StoreUnsigned(const Type &type, uint64_t value, Slot *slot) {
  if (type.kind == TypeKind::kSigned) {
    return value <= INT64_MAX && StoreSigned(type, static_cast<int64_t>(value), slot);
  }
  if (type.kind == TypeKind::kBool) {
    if (value > 1) {
      return false;
    }
  } else if (type.kind != TypeKind::kUnsigned) {
    return false;
  }
  switch (type.size) {
    case 1:
      if (value != static_cast<uint8_t>(value)) {
        return false;
      }
      break;
    case 2:
      if (value != static_cast<uint16_t>(value)) {
        return false;
      }
      break;
    case 4:
      if (value != static_cast<uint32_t>(value)) {
        return false;
      }
      break;
    default:
      break;
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
