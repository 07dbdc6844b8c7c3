#include "objc_runtime.h"

#include <objc/runtime.h>

#include <cstdlib>
#include <unordered_map>

// gcc's runtime can be given classes, methods and variables through its public functions, but no
// protocols: their records are made here (objc-private/module-abi-8.h).
struct GccMethodDescriptions {
  int count;
  struct objc_method_description list[1];
};
struct GccProtocol;
struct GccProtocolList {
  GccProtocolList *next;
  size_t count;
  GccProtocol *list[1];
};
struct GccProtocol {
  Class isa;
  const char *name;
  GccProtocolList *adopted;
  GccMethodDescriptions *instanceMethods, *classMethods;
  // What clang writes besides and connections look at: optional methods, and properties.
  void *optionalMethods[2], *properties[2];
};
extern "C" void __objc_protocols_add_protocol(const char *name, GccProtocol *protocol);

namespace macho {

namespace {

using RuntimeClass = ::Class;
using RuntimeMethod = ::Method;

/// gcc's and GNUstep's readers of types do not know the question mark of a block.
const char *RuntimeTypes(const char *types) {
  if (!std::strstr(types, "@?")) {
    return types;
  }
  std::string text;
  for (const char *c = types; *c; ++c) {
    if (*c != '?' || c == types || c[-1] != '@') {
      text += *c;
    }
  }
  return strdup(text.c_str());
}

/// A record whose last member is an array, of `count` elements.
template <typename Record, typename Element>
Record *Allocate(size_t count) {
  return static_cast<Record *>(std::calloc(1, sizeof(Record) + count * sizeof(Element)));
}

class Registry {
 public:
  explicit Registry(const ObjectiveC &read) : read_(read) {}

  void registerAll() {
    for (const ConstantString &string : read_.strings) {
      convert(string);
    }
    for (const auto &[place, name] : read_.selectors) {
      *place = reinterpret_cast<uintptr_t>(sel_registerName(name));
    }
    for (const Protocol &protocol : read_.protocols) {
      add(protocol);
    }
    for (const Class &one : read_.classes) {
      add(one);
    }
    for (const Category &category : read_.categories) {
      const RuntimeClass target = find(category.target);
      addMethods(target, category.methods);
      addMethods(metaclassOf(target), category.classMethods);
      addProtocols(target, category.protocols);
    }
    for (const auto &[place, protocol] : read_.protocolReferences) {
      *place = reinterpret_cast<uintptr_t>(protocols_.at(protocol));
    }
    for (const auto &[place, reference] : read_.classReferences) {
      *place = reinterpret_cast<uintptr_t>(find(reference));
    }
  }

 private:
  /// Makes a constant string of Apple's layout one of GNUstep's, which is shorter, in its place.
  void convert(const ConstantString &string) {
    struct {
      RuntimeClass isa;
      const char *text;
      uint64_t length;
    } record = {static_cast<RuntimeClass>(objc_getClass("NSConstantString")),
                string.text ? string.text : string.converted.c_str(), string.length};
    std::memcpy(string.record, &record, sizeof record);
  }

  static RuntimeClass metaclassOf(RuntimeClass one) {
    return object_getClass(reinterpret_cast<id>(one));
  }

  RuntimeClass find(const ClassReference &reference) const {
    if (!reference.own) {
      return reinterpret_cast<RuntimeClass>(reference.imported);
    }
    const RuntimeClass found = classes_.at(reference.own);
    return reference.isMeta ? metaclassOf(found) : found;
  }

  GccMethodDescriptions *describe(const std::vector<Method> &methods) {
    if (methods.empty()) {
      return nullptr;
    }
    auto *made = Allocate<GccMethodDescriptions, objc_method_description>(methods.size());
    for (const Method &method : methods) {
      auto &description = made->list[made->count++];
      description.name = sel_registerTypedName(method.name, RuntimeTypes(method.types));
      description.types = const_cast<char *>(method.types);
    }
    return made;
  }

  void add(const Protocol &protocol) {
    auto &made = protocols_[&protocol];
    made = reinterpret_cast<GccProtocol *>(objc_getProtocol(protocol.name));
    if (made) {
      return;
    }
    made = Allocate<GccProtocol, char>(0);
    made->isa = static_cast<RuntimeClass>(objc_getClass("Protocol"));
    made->name = protocol.name;
    made->instanceMethods = describe(protocol.instanceMethods);
    made->classMethods = describe(protocol.classMethods);
    if (!protocol.adopted.empty()) {
      made->adopted = Allocate<GccProtocolList, GccProtocol *>(protocol.adopted.size());
      for (const Protocol *adopted : protocol.adopted) {
        made->adopted->list[made->adopted->count++] = protocols_.at(adopted);
      }
    }
    __objc_protocols_add_protocol(protocol.name, made);
  }

  static void addMethods(RuntimeClass to, const std::vector<Method> &methods) {
    for (const Method &method : methods) {
      const char *types = RuntimeTypes(method.types);
      const SEL selector = sel_registerTypedName(method.name, types);
      const auto code = reinterpret_cast<IMP>(method.code);
      // It is there already where an earlier copy of the image has extended a class of others.
      if (!class_addMethod(to, selector, code, types)) {
        class_replaceMethod(to, selector, code, types);
      }
    }
  }

  void addProtocols(RuntimeClass to, const std::vector<const Protocol *> &protocols) {
    for (const Protocol *protocol : protocols) {
      class_addProtocol(to, reinterpret_cast<::Protocol *>(protocols_.at(protocol)));
    }
  }

  void add(const Class &one) {
    // Each copy of an image uses its own classes, whichever the runtime finds by the name.
    std::string name = one.name;
    for (int copy = 2; objc_lookUpClass(name.c_str()); ++copy) {
      name = one.name + std::string("-") + std::to_string(copy);
    }
    const RuntimeClass superclass = find(one.superclass);
    const RuntimeClass made = objc_allocateClassPair(superclass, name.c_str(), 0);
    if (!made) {
      Refuse("class %s cannot be made", name.c_str());
    }
    for (const Variable &variable : one.variables) {
      if (!class_addIvar(made, variable.name, variable.size,
                         static_cast<unsigned char>(variable.alignment), variable.types)) {
        Refuse("variable %s of class %s cannot be made", variable.name, one.name);
      }
    }
    addMethods(made, one.methods);
    addMethods(metaclassOf(made), one.classMethods);
    addProtocols(made, one.protocols);
    objc_registerClassPair(made);
    classes_[&one] = made;

    const bool isOfRoot = superclass == static_cast<RuntimeClass>(objc_getClass("NSObject"));
    for (const Variable &variable : one.variables) {
      const int64_t offset = ivar_getOffset(class_getInstanceVariable(made, variable.name));
      // The compiler knows how large NSObject is, and reads no offset then.
      if (isOfRoot && offset != *variable.offset) {
        Refuse("variable %s of class %s is elsewhere here", variable.name, one.name);
      }
      *variable.offset = offset;
    }
  }

  const ObjectiveC &read_;
  std::unordered_map<const Protocol *, GccProtocol *> protocols_;
  std::unordered_map<const Class *, RuntimeClass> classes_;
};

}  // namespace

void RegisterObjectiveC(const ObjectiveC &read) { Registry(read).registerAll(); }

}  // namespace macho
