// The records of Apple's Objective-C runtime for 64 bits, as the compiler writes them (the
// runtime's published objc-runtime-new.h). Pointers are addresses, for whoever follows them has to
// check them.

#ifndef MACHO_OBJC_RECORDS_H
#define MACHO_OBJC_RECORDS_H

#include <cstdint>

namespace macho::records {

using Address = uintptr_t;

/// Precedes the entries of methods and variables.
struct List {
  uint32_t entrySize, count;
};
struct Method {
  Address name, types, code;
};
struct Variable {
  Address offset, name, types;
  uint32_t alignment, size;  ///< The alignment's logarithm.
};
/// Precedes the addresses of protocols.
struct ProtocolList {
  uint64_t count;
};
struct Protocol {
  Address isa, name, adopted;
  Address instanceMethods, classMethods, optionalInstanceMethods, optionalClassMethods;
  Address properties;
  uint32_t size, flags;
  Address extendedTypes;  ///< Only where `size` reaches so far.
};
struct ClassData {
  uint32_t flags, instanceStart, instanceSize, reserved;
  Address variableLayout, name, methods, protocols, variables, weakLayout, properties;
};
struct Class {
  Address isa, superclass, cache, vtable, data;
};
struct Category {
  Address name, target, instanceMethods, classMethods, protocols, properties;
};
struct String {
  Address isa;
  uint64_t flags;
  Address text;
  uint64_t length;
};

enum ClassFlags : uint32_t { kMeta = 0x1, kHidden = 0x10 };
enum StringFlags : uint64_t { kBytes = 0x7c8, kUtf16 = 0x7d0 };

}  // namespace macho::records

#endif
