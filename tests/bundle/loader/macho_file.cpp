#include "macho_file.h"

#include <algorithm>
#include <array>

namespace macho {

namespace {

constexpr uint32_t kUniversalMagic = 0xcafebabe;
constexpr uint32_t kMagic = 0xfeedfacf;
constexpr uint32_t kX8664 = 0x01000007;
constexpr uint32_t kBundle = 8;
/// Far more than any bundle has; keeps sums of addresses from wrapping.
constexpr uint64_t kLargestImage = uint64_t{1} << 32;

struct UniversalHeader {
  uint32_t magic, count;
};
struct UniversalSlice {
  uint32_t processor, subtype, offset, size, alignment;
};
struct Header {
  uint32_t magic, processor, subtype, type, commandCount, commandSize, flags, reserved;
};
struct Command {
  uint32_t kind, size;
};
struct SegmentCommand {
  uint32_t kind, commandSize;
  char name[16];
  uint64_t address, size, offset, fileSize;
  uint32_t maximumProtection, protection, sectionCount, flags;
};
struct SectionRecord {
  char name[16], segment[16];
  uint64_t address, size;
  uint32_t offset, alignment, relocationOffset, relocationCount, flags, reserved[3];
};
struct SymbolTableCommand {
  uint32_t kind, commandSize, offset, count, textOffset, textSize;
};
struct Symbol {
  uint32_t name;
  uint8_t type, section;
  uint16_t description;
  uint64_t value;
};
struct LibraryCommand {
  uint32_t kind, commandSize, name;
};
struct FixupsCommand {
  uint32_t kind, commandSize;
  struct {
    uint32_t offset, size;
  } rebases, binds, weakBinds, lazyBinds, exports;
};

enum CommandKind : uint32_t {
  kRequired = 0x80000000,  // Whoever does not know the command must not load the file.
  kSymbolTable = 0x2,
  kDynamicSymbolTable = 0xb,
  kLoadLibrary = 0xc,
  kSegment = 0x19,
  kIdentifier = 0x1b,
  kCodeSignature = 0x1d,
  kFixups = 0x22,
  kOldestMac = 0x24,
  kFunctionStarts = 0x26,
  kDataInCode = 0x29,
  kSourceVersion = 0x2a,
  kBuildVersion = 0x32,
  kLoadWeakLibrary = 0x18 | kRequired,
  kFixupsOnly = 0x22 | kRequired,
  kChainedFixups = 0x34 | kRequired,
};

enum SectionType : uint8_t {
  kRegular = 0x0,
  kZeroFilled = 0x1,
  kTexts = 0x2,
  kLiterals4 = 0x3,
  kLiterals8 = 0x4,
  kLiteralPointers = 0x5,
  kPointers = 0x6,
  kLazyPointers = 0x7,
  kStubs = 0x8,
  kInitializers = 0x9,
  kCoalesced = 0xb,
  kLiterals16 = 0xe,
};

constexpr std::array kTypes = {kRegular,      kZeroFilled, kTexts,           kLiterals4,
                               kLiterals8,    kLiterals16, kLiteralPointers, kPointers,
                               kLazyPointers, kStubs,      kInitializers,    kCoalesced};

/// Sections of Objective-C that objc_reader.cpp reads, and those that they refer to.
constexpr std::array kObjectiveCSections = {
    "__objc_catlist",   "__objc_classlist", "__objc_classname", "__objc_classrefs",
    "__objc_const",     "__objc_data",      "__objc_imageinfo", "__objc_ivar",
    "__objc_methname",  "__objc_methtype",  "__objc_nlcatlist", "__objc_nlclslist",
    "__objc_protolist", "__objc_protorefs", "__objc_selrefs",   "__objc_superrefs"};

/// Where a name begins so, somebody has to do something with the section. (Not with __eh_frame: it
/// repeats the compact unwind records, of which one that says it does not is refused.)
constexpr std::array kMeaningfulNames = {"__objc", "__thread", "__swift"};

uint32_t BigEndian(uint32_t value) { return __builtin_bswap32(value); }

std::string Name(const char (&name)[16]) { return {name, strnlen(name, sizeof name)}; }

template <typename T>
T ReadCommand(Bytes command) {
  return command.read<T>(0);
}

Bytes FindSlice(Bytes file, uint64_t *offset) {
  *offset = 0;
  const auto header = file.read<UniversalHeader>(0);
  if (BigEndian(header.magic) != kUniversalMagic) {
    return file;
  }
  for (uint32_t i = 0; i < BigEndian(header.count); ++i) {
    const auto slice =
        file.read<UniversalSlice>(sizeof header + uint64_t{i} * sizeof(UniversalSlice));
    if (BigEndian(slice.processor) != kX8664) {
      continue;
    }
    *offset = BigEndian(slice.offset);
    return file.part(*offset, BigEndian(slice.size), "the x86_64 slice");
  }
  Refuse("the universal file has no x86_64 slice");
}

void CheckSection(const Section &section, uint8_t type) {
  const bool isMeaningful =
      std::any_of(kMeaningfulNames.begin(), kMeaningfulNames.end(), [&](const char *prefix) {
        return section.name.compare(0, std::strlen(prefix), prefix) == 0;
      });
  const bool isKnown = std::find(kObjectiveCSections.begin(), kObjectiveCSections.end(),
                                 section.name) != kObjectiveCSections.end();
  if (isMeaningful && !isKnown) {
    Refuse("section %s,%s is not understood", section.segment.c_str(), section.name.c_str());
  }
  if (std::find(kTypes.begin(), kTypes.end(), type) == kTypes.end()) {
    Refuse("section %s,%s is of type 0x%x, which is not understood", section.segment.c_str(),
           section.name.c_str(), type);
  }
}

class Reader {
 public:
  explicit Reader(Bytes file) { slice_ = FindSlice(file, &result_.sliceOffset); }

  MachoFile read() {
    const auto header = slice_.read<Header>(0);
    if (header.magic != kMagic) {
      Refuse("this is no Mach-O file of 64 bits");
    }
    if (header.processor != kX8664) {
      Refuse("the file is not for x86_64");
    }
    if (header.type != kBundle) {
      Refuse("the file is of type %u and no bundle", header.type);
    }
    const Bytes commands = slice_.part(sizeof header, header.commandSize, "the load commands");
    uint64_t offset = 0;
    for (uint32_t i = 0; i < header.commandCount; ++i) {
      const auto [kind, size] = commands.read<Command>(offset);
      if (size < sizeof(Command)) {
        Refuse("load command 0x%x has %u bytes", kind, size);
      }
      readOne(kind, commands.part(offset, size, "a load command"));
      offset += size;
    }
    checkSegments();
    readExports();
    return std::move(result_);
  }

 private:
  void readOne(uint32_t kind, Bytes command) {
    switch (kind) {
      case kSegment:
        readSegment(command);
        break;
      case kLoadLibrary:
      case kLoadWeakLibrary: {
        const std::string path = command.text(ReadCommand<LibraryCommand>(command).name);
        result_.libraries.push_back(path.substr(path.rfind('/') + 1));
        break;
      }
      case kFixups:
      case kFixupsOnly:
        readFixups(ReadCommand<FixupsCommand>(command));
        break;
      case kSymbolTable:
        symbols_ = ReadCommand<SymbolTableCommand>(command);
        break;
      case kChainedFixups:
        Refuse("chained fixups are not understood");
      case kDynamicSymbolTable:
      case kIdentifier:
      case kCodeSignature:
      case kOldestMac:
      case kFunctionStarts:
      case kDataInCode:
      case kSourceVersion:
      case kBuildVersion:
        break;
      default:
        Refuse("load command 0x%x is not understood", kind);
    }
  }

  void readSegment(Bytes command) {
    constexpr uint32_t kReadOnlyOnceFixed = 0x10;
    const auto record = ReadCommand<SegmentCommand>(command);
    const Segment segment = {Name(record.name),
                             record.address,
                             record.size,
                             record.offset,
                             record.fileSize,
                             static_cast<int>(record.protection),
                             (record.flags & kReadOnlyOnceFixed) != 0};
    const char *name = segment.name.c_str();
    if (segment.address > kLargestImage || segment.size > kLargestImage) {
      Refuse("segment %s has 0x%" PRIx64 " bytes at 0x%" PRIx64, name, segment.size,
             segment.address);
    }
    if (record.protection > 7) {
      Refuse("segment %s has protection %u", name, record.protection);
    }
    if (segment.fileSize > segment.size) {
      Refuse("segment %s is longer in the file", name);
    }
    // A Mac cannot map it either.
    if (segment.address % kPage || (result_.sliceOffset + segment.offset) % kPage) {
      Refuse("segment %s does not begin with a page", name);
    }
    slice_.part(segment.offset, segment.fileSize, name);
    for (uint32_t i = 0; i < record.sectionCount; ++i) {
      const auto one =
          command.read<SectionRecord>(sizeof record + uint64_t{i} * sizeof(SectionRecord));
      const uint8_t type = one.flags & 0xff;
      const Section section = {Name(one.segment), Name(one.name), one.address, one.size,
                               type == kInitializers};
      CheckSection(section, type);
      if (!segment.holds(section.address, section.size)) {
        Refuse("section %s,%s is not in its segment", section.segment.c_str(),
               section.name.c_str());
      }
      result_.sections.push_back(section);
    }
    result_.segments.push_back(segment);
  }

  void readFixups(const FixupsCommand &command) {
    const auto part = [this](const auto &range, const char *name) {
      return slice_.part(range.offset, range.size, name);
    };
    if (command.weakBinds.size) {
      Refuse("weak binds are not understood");
    }
    result_.rebases = part(command.rebases, "the rebase opcodes");
    result_.binds = part(command.binds, "the bind opcodes");
    result_.lazyBinds = part(command.lazyBinds, "the lazy bind opcodes");
  }

  void checkSegments() {
    auto sorted = result_.segments;
    std::sort(sorted.begin(), sorted.end(),
              [](const Segment &a, const Segment &b) { return a.address < b.address; });
    uint64_t end = 0;
    for (const Segment &segment : sorted) {
      if (segment.address < end) {
        Refuse("segment %s overlaps another", segment.name.c_str());
      }
      end = (segment.address + segment.size + kPage - 1) / kPage * kPage;
    }
    if (end == 0) {
      Refuse("the bundle is empty");
    }
    result_.extent = end;
  }

  void readExports() {
    constexpr uint8_t kExternal = 0x01, kInSection = 0x0e, kTypeAndExternal = 0x0f;
    const Bytes texts = slice_.part(symbols_.textOffset, symbols_.textSize, "the symbols' names");
    const Bytes table =
        slice_.part(symbols_.offset, uint64_t{symbols_.count} * sizeof(Symbol), "the symbol table");
    for (uint32_t i = 0; i < symbols_.count; ++i) {
      const auto symbol = table.read<Symbol>(uint64_t{i} * sizeof(Symbol));
      if ((symbol.type & kTypeAndExternal) != (kInSection | kExternal)) {
        continue;
      }
      const char *name = texts.text(symbol.name);
      if (symbol.value >= result_.extent) {
        Refuse("symbol %s is not in the image", name);
      }
      result_.exports[name] = symbol.value;
    }
  }

  Bytes slice_;
  MachoFile result_{};
  SymbolTableCommand symbols_{};
};

}  // namespace

MachoFile ReadMachoFile(Bytes file) { return Reader(file).read(); }

}  // namespace macho
