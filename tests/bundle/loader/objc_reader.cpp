#include "objc_reader.h"

#include <unordered_map>

#include "objc_records.h"

namespace macho {

namespace {

using records::Address;

std::string Utf8OfUtf16(const uint16_t *units, uint64_t count) {
  std::string text;
  const auto add = [&text](uint32_t bits) { text += static_cast<char>(bits); };
  for (uint64_t i = 0; i < count; ++i) {
    uint32_t c = units[i];
    const bool isPair = c >= 0xd800 && c < 0xdc00 && i + 1 < count && units[i + 1] >= 0xdc00 &&
                        units[i + 1] < 0xe000;
    if (isPair) {
      c = 0x10000 + ((c & 0x3ff) << 10 | (units[++i] & 0x3ff));
    }
    if (c < 0x80) {
      add(c);
      continue;
    }
    if (c < 0x800) {
      add(0xc0 | c >> 6);
    } else {
      if (c < 0x10000) {
        add(0xe0 | c >> 12);
      } else {
        add(0xf0 | c >> 18);
        add(0x80 | (c >> 12 & 0x3f));
      }
      add(0x80 | (c >> 6 & 0x3f));
    }
    add(0x80 | (c & 0x3f));
  }
  return text;
}

class Reader {
 public:
  explicit Reader(const Image &image) : image_(image) {}

  ObjectiveC read() {
    for (auto &record : image_.arrayOf<records::String>("__cfstring")) {
      readString(&record);
    }
    for (uintptr_t &place : image_.arrayOf<uintptr_t>("__objc_selrefs")) {
      result_.selectors.push_back({&place, image_.text(place)});
    }
    for (uintptr_t record : image_.arrayOf<uintptr_t>("__objc_protolist")) {
      protocolAt(record);
    }
    for (uintptr_t &place : image_.arrayOf<uintptr_t>("__objc_protorefs")) {
      result_.protocolReferences.push_back({&place, protocolAt(place)});
    }
    for (uintptr_t record : image_.arrayOf<uintptr_t>("__objc_classlist")) {
      classAt(record);
    }
    for (const char *section : {"__objc_classrefs", "__objc_superrefs"}) {
      for (uintptr_t &place : image_.arrayOf<uintptr_t>(section)) {
        result_.classReferences.push_back({&place, refer(place)});
      }
    }
    for (uintptr_t record : image_.arrayOf<uintptr_t>("__objc_catlist")) {
      readCategory(record);
    }
    return std::move(result_);
  }

 private:
  void readString(records::String *record) {
    ConstantString string = {record, nullptr, {}, record->length};
    switch (record->flags) {
      case records::kBytes:
        string.text = image_.at<char>(record->text, record->length);
        break;
      case records::kUtf16:
        string.converted =
            Utf8OfUtf16(image_.at<uint16_t>(record->text, record->length), record->length);
        string.length = string.converted.size();
        break;
      default:
        Refuse("a constant string has flags 0x%" PRIx64 ", which are not understood",
               record->flags);
    }
    result_.strings.push_back(std::move(string));
  }

  /// The entries of a list of methods or variables.
  template <typename Entry>
  Image::Array<Entry> entries(Address address, const char *owner) {
    if (address == 0) {
      return {};
    }
    const auto *list = image_.at<records::List>(address);
    // The highest bit says that methods are relative, the lowest two that they have been sorted.
    if (list->entrySize != sizeof(Entry)) {
      Refuse("%s has records of 0x%x bytes, which are not understood", owner, list->entrySize);
    }
    return {image_.at<Entry>(address + sizeof *list, list->count), list->count};
  }

  std::vector<Method> methods(Address address, const char *owner) {
    std::vector<Method> methods;
    for (const auto &method : entries<records::Method>(address, owner)) {
      methods.push_back(
          {image_.text(method.name), image_.text(method.types), image_.code(method.code)});
    }
    return methods;
  }

  std::vector<Method> classMethods(Address address, const char *owner) {
    auto methods = this->methods(address, owner);
    for (const Method &method : methods) {
      if (std::strcmp(method.name, "load") == 0) {
        Refuse("%s has +load", owner);
      }
    }
    return methods;
  }

  std::vector<const Protocol *> protocols(Address address) {
    std::vector<const Protocol *> protocols;
    if (address == 0) {
      return protocols;
    }
    const uint64_t count = image_.at<records::ProtocolList>(address)->count;
    const auto *entries = image_.at<Address>(address + sizeof(records::ProtocolList), count);
    for (uint64_t i = 0; i < count; ++i) {
      protocols.push_back(protocolAt(entries[i]));
    }
    return protocols;
  }

  const Protocol *protocolAt(Address address) {
    const auto [known, isNew] = protocols_.try_emplace(address, nullptr);
    if (!isNew) {
      if (!known->second) {
        Refuse("a protocol adopts itself");
      }
      return known->second;
    }
    // Older compilers end it before the extended types.
    constexpr size_t kShortest = offsetof(records::Protocol, extendedTypes);
    const auto *begin = image_.at<uint8_t>(address, kShortest);
    records::Protocol record{};
    std::memcpy(&record, begin, kShortest);
    if (record.size >= sizeof record) {
      record = *image_.at<records::Protocol>(address);
    }

    Protocol protocol = {image_.text(record.name), protocols(record.adopted), {}, {}};
    // The extended types are those of all lists, in this order.
    uint64_t number = 0;
    for (const auto &[list, methods] :
         {std::pair{record.instanceMethods, &protocol.instanceMethods},
          std::pair{record.classMethods, &protocol.classMethods},
          std::pair{record.optionalInstanceMethods, &protocol.instanceMethods},
          std::pair{record.optionalClassMethods, &protocol.classMethods}}) {
      for (const auto &method : entries<records::Method>(list, protocol.name)) {
        const Address types =
            record.extendedTypes
                ? *image_.at<Address>(record.extendedTypes + sizeof(Address) * number)
                : method.types;
        methods->push_back({image_.text(method.name), image_.text(types), 0});
        ++number;
      }
    }
    result_.protocols.push_back(std::move(protocol));
    return protocols_[address] = &result_.protocols.back();
  }

  ClassReference refer(Address address) {
    if (!image_.contains(address)) {
      return {nullptr, false, address};
    }
    const auto meta = metaclasses_.find(address);
    if (meta != metaclasses_.end()) {
      return {meta->second, true, 0};
    }
    return {classAt(address), false, 0};
  }

  const records::ClassData &dataOf(Address address, uint32_t flags) {
    const auto &data = *image_.at<records::ClassData>(image_.at<records::Class>(address)->data);
    if ((data.flags & ~uint32_t{records::kHidden}) != flags) {
      Refuse("class %s has flags 0x%x, which are not understood", image_.text(data.name),
             data.flags);
    }
    return data;
  }

  const Class *classAt(Address address) {
    const auto [known, isNew] = classes_.try_emplace(address, nullptr);
    if (!isNew) {
      if (!known->second) {
        Refuse("a class is its own superclass");
      }
      return known->second;
    }
    const auto *record = image_.at<records::Class>(address);
    const records::ClassData &data = dataOf(address, 0);
    const records::ClassData &metaData = dataOf(record->isa, records::kMeta);
    Class made{};
    made.name = image_.text(data.name);
    made.superclass = refer(record->superclass);
    if (made.superclass.isMeta || (!made.superclass.own && !made.superclass.imported)) {
      Refuse("class %s has no superclass", made.name);
    }
    made.methods = methods(data.methods, made.name);
    made.classMethods = classMethods(metaData.methods, made.name);
    made.protocols = protocols(data.protocols);
    for (const auto &variable : entries<records::Variable>(data.variables, made.name)) {
      made.variables.push_back({image_.text(variable.name), image_.text(variable.types),
                                variable.alignment, variable.size,
                                image_.at<int64_t>(variable.offset)});
      if (variable.alignment > 4) {
        Refuse("%s of %s is aligned oddly", image_.text(variable.name), made.name);
      }
    }
    result_.classes.push_back(std::move(made));
    const Class *result = &result_.classes.back();
    metaclasses_[record->isa] = result;
    return classes_[address] = result;
  }

  void readCategory(Address address) {
    const auto *record = image_.at<records::Category>(address);
    const char *name = image_.text(record->name);
    const ClassReference target = refer(record->target);
    if (target.isMeta || (!target.own && !target.imported)) {
      Refuse("category %s has no class", name);
    }
    result_.categories.push_back({name, target, methods(record->instanceMethods, name),
                                  classMethods(record->classMethods, name),
                                  protocols(record->protocols)});
  }

  const Image &image_;
  ObjectiveC result_;
  std::unordered_map<Address, const Protocol *> protocols_;  // Null while it is read.
  std::unordered_map<Address, const Class *> classes_;       // Likewise.
  std::unordered_map<Address, const Class *> metaclasses_;
};

}  // namespace

ObjectiveC ReadObjectiveC(const Image &image) { return Reader(image).read(); }

}  // namespace macho
