#include "compact_unwind.h"

#include <algorithm>
#include <map>

namespace macho {

namespace {

struct Header {
  uint32_t version;
  uint32_t encodings, encodingCount;
  uint32_t personalities, personalityCount;
  uint32_t pages, pageCount;
};
/// One for each page of the second level, and one that ends them.
struct Page {
  uint32_t function, content, handlers;
};
struct Handlers {
  uint32_t function, data;
};
struct RegularPage {
  uint32_t kind;
  uint16_t entries, entryCount;
};
struct CompressedPage {
  uint32_t kind;
  uint16_t entries, entryCount, encodings, encodingCount;
};
struct RegularEntry {
  uint32_t function, encoding;
};

constexpr uint32_t kRegular = 2, kCompressed = 3;

enum Encoding : uint32_t {
  kHasHandlers = 0x40000000,
  kPersonality = 0x30000000,
  kMode = 0x0f000000,
  kFrameOfRbp = 0x01000000,
  kSavedOffset = 0x00ff0000,
  kSavedRegisters = 0x00007fff,
};

class Reader {
 public:
  explicit Reader(const Image &image) : image_(image) {
    const Section *section = image.find("__unwind_info");
    if (!section) {
      Refuse("there is no __unwind_info");
    }
    bytes_ = image.rest(image.base() + section->address, "__unwind_info");
    header_ = bytes_.read<Header>(0);
    if (header_.version != 1) {
      Refuse("__unwind_info is of version %u", header_.version);
    }
    if (header_.pageCount == 0) {
      Refuse("__unwind_info has no pages");
    }
  }

  std::vector<Function> read() {
    for (uint32_t i = 0; i + 1 < header_.pageCount; ++i) {
      readPage(pageAt(i));
    }
    const Page last = pageAt(header_.pageCount - 1);
    readHandlers(pageAt(0).handlers, last.handlers);

    std::vector<Function> functions;
    for (size_t i = 0; i < entries_.size(); ++i) {
      const auto &[offset, encoding] = entries_[i];
      const uint32_t end = i + 1 < entries_.size() ? entries_[i + 1].function : last.function;
      if (end < offset) {
        Refuse("__unwind_info has functions out of order");
      }
      if (encoding != 0 && end > offset) {
        functions.push_back(make(offset, end, encoding));
      }
    }
    return functions;
  }

 private:
  Page pageAt(uint32_t index) const {
    return bytes_.read<Page>(header_.pages + uint64_t{index} * sizeof(Page));
  }

  void readPage(const Page &page) {
    if (page.content == 0) {
      return;
    }
    switch (bytes_.read<uint32_t>(page.content)) {
      case kRegular: {
        const auto regular = bytes_.read<RegularPage>(page.content);
        for (uint64_t i = 0; i < regular.entryCount; ++i) {
          entries_.push_back(bytes_.read<RegularEntry>(uint64_t{page.content} + regular.entries +
                                                       i * sizeof(RegularEntry)));
        }
        break;
      }
      case kCompressed: {
        const auto compressed = bytes_.read<CompressedPage>(page.content);
        for (uint64_t i = 0; i < compressed.entryCount; ++i) {
          const auto entry = bytes_.read<uint32_t>(uint64_t{page.content} + compressed.entries +
                                                   i * sizeof(uint32_t));
          entries_.push_back(
              {page.function + (entry & 0xffffff),
               encodingAt(page.content + uint64_t{compressed.encodings}, entry >> 24)});
        }
        break;
      }
      default:
        Refuse("__unwind_info has a page of a kind that is not understood");
    }
  }

  /// The first encodings are those that all pages have in common.
  uint32_t encodingAt(uint64_t ofPage, uint32_t index) const {
    if (index < header_.encodingCount) {
      return bytes_.read<uint32_t>(header_.encodings + uint64_t{index} * sizeof(uint32_t));
    }
    return bytes_.read<uint32_t>(ofPage + (index - header_.encodingCount) * sizeof(uint32_t));
  }

  void readHandlers(uint64_t begin, uint64_t end) {
    for (; begin < end; begin += sizeof(Handlers)) {
      const auto entry = bytes_.read<Handlers>(begin);
      handlers_[entry.function] = entry.data;
    }
  }

  Function make(uint32_t offset, uint32_t end, uint32_t encoding) const {
    if ((encoding & kMode) != kFrameOfRbp) {
      Refuse("the function at 0x%x has no frame of %%rbp (compact unwinding 0x%08x)", offset,
             encoding);
    }
    Function function{};
    function.start = image_.code(image_.base() + offset);
    function.end = image_.code(image_.base() + end - 1) + 1;
    // Three bits a register, from %rbp - 8 * offset upwards; the canonical frame address is %rbp
    // + 16.
    static constexpr uint8_t kNumbers[] = {3, 12, 13, 14, 15};  // %rbx, %r12 to %r15
    const uint32_t lowest = (encoding & kSavedOffset) >> 16;
    for (uint32_t i = 0; i < 5; ++i) {
      const uint32_t which = (encoding & kSavedRegisters) >> (3 * i) & 7;
      if (which == 0) {
        continue;
      }
      if (which > std::size(kNumbers) || i >= lowest) {
        Refuse("compact unwinding 0x%08x is not understood", encoding);
      }
      function.saved.push_back({kNumbers[which - 1], 2 + lowest - i});
    }
    const uint32_t personality = (encoding & kPersonality) >> 28;
    if (personality == 0) {
      return function;
    }
    if (personality > header_.personalityCount) {
      Refuse("__unwind_info lacks a personality");
    }
    const auto place = bytes_.read<uint32_t>(header_.personalities +
                                             (personality - 1) * uint64_t{sizeof(uint32_t)});
    function.personality = *image_.at<uintptr_t>(image_.base() + place);
    const auto handlers = handlers_.find(offset);
    if ((encoding & kHasHandlers) && handlers != handlers_.end()) {
      function.handlers = image_.base() + handlers->second;
    }
    return function;
  }

  const Image &image_;
  Bytes bytes_;
  Header header_{};
  std::vector<RegularEntry> entries_;
  std::map<uint32_t, uint32_t> handlers_;
};

}  // namespace

std::vector<Function> ReadCompactUnwind(const Image &image) { return Reader(image).read(); }

}  // namespace macho
