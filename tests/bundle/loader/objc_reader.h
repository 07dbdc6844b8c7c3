// What an image has of Objective-C, read from Apple's records and checked, for no runtime yet.

#ifndef MACHO_OBJC_READER_H
#define MACHO_OBJC_READER_H

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "image.h"

namespace macho {

struct Method {
  const char *name, *types;
  uintptr_t code;  ///< 0 in a protocol.
};

struct Variable {
  const char *name, *types;
  uint32_t alignment, size;  ///< The alignment's logarithm.
  int64_t *offset;           ///< Where the image's code finds it.
};

struct Protocol {
  const char *name;
  std::vector<const Protocol *> adopted;
  /// Required and optional ones. The types are the extended ones where there are any: connections
  /// learn from them what a block takes.
  std::vector<Method> instanceMethods, classMethods;
};

struct Class;

/// A class of the image, or the address that an import was bound to: nullptr and 0 if it is
/// missing.
struct ClassReference {
  const Class *own;
  bool isMeta;
  uintptr_t imported;
};

struct Class {
  const char *name;
  ClassReference superclass;
  std::vector<Method> methods, classMethods;
  std::vector<Variable> variables;
  std::vector<const Protocol *> protocols;
};

struct Category {
  const char *name;
  ClassReference target;
  std::vector<Method> methods, classMethods;
  std::vector<const Protocol *> protocols;
};

struct ConstantString {
  void *record;           ///< Has room for 32 bytes.
  const char *text;       ///< In the image, or nullptr where `converted` has it.
  std::string converted;  ///< UTF-8 of a text that is UTF-16 in the image.
  uint64_t length;        ///< Bytes.
};

/// A place in the image and what it refers to.
template <typename T>
struct Reference {
  uintptr_t *place;
  T target;
};

struct ObjectiveC {
  std::deque<Protocol> protocols;  ///< Each after those that it adopts.
  std::deque<Class> classes;       ///< Each after its superclass.
  std::vector<Category> categories;
  std::vector<ConstantString> strings;
  std::vector<Reference<const char *>> selectors;
  std::vector<Reference<ClassReference>> classReferences;
  std::vector<Reference<const Protocol *>> protocolReferences;
};

/// @param image  With its fixups applied.
ObjectiveC ReadObjectiveC(const Image &image);

}  // namespace macho

#endif
