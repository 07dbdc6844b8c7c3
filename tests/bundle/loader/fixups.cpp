#include "fixups.h"

#include <sys/mman.h>

namespace macho {

namespace {

constexpr uint8_t kOpcode = 0xf0, kImmediate = 0x0f;
constexpr uint8_t kPointer = 1;

enum RebaseOpcode : uint8_t {
  kRebaseDone = 0x00,
  kRebaseSetType = 0x10,
  kRebaseSetPlace = 0x20,
  kRebaseAdvance = 0x30,
  kRebaseAdvanceScaled = 0x40,
  kRebase = 0x50,
  kRebaseTimes = 0x60,
  kRebaseAndAdvance = 0x70,
  kRebaseTimesAndSkip = 0x80,
};

enum BindOpcode : uint8_t {
  kBindDone = 0x00,
  kBindSetLibrary = 0x10,
  kBindSetLibraryUleb = 0x20,
  kBindSetSpecialLibrary = 0x30,
  kBindSetSymbol = 0x40,
  kBindSetType = 0x50,
  kBindSetAddend = 0x60,
  kBindSetPlace = 0x70,
  kBindAdvance = 0x80,
  kBind = 0x90,
  kBindAndAdvance = 0xa0,
  kBindAndAdvanceScaled = 0xb0,
  kBindTimesAndSkip = 0xc0,
};

/// Where the opcodes have got to. Distances wrap: they can lead back.
class Place {
 public:
  explicit Place(const Image &image) : image_(image) {}

  void set(uint8_t segment, uint64_t offset) {
    const auto &segments = image_.file().segments;
    if (segment >= segments.size()) {
      Refuse("opcodes name segment %u", segment);
    }
    segment_ = &segments[segment];
    offset_ = offset;
  }

  void advance(uint64_t distance) { offset_ += distance; }

  /// Calls `fix(word)` `count` times, each time going past the word and `skip` bytes.
  template <typename Fix>
  void run(uint64_t count, uint64_t skip, Fix fix) {
    if (!segment_) {
      Refuse("opcodes name no segment");
    }
    if (!(segment_->protection & PROT_WRITE)) {
      Refuse("opcodes change segment %s, which cannot be written", segment_->name.c_str());
    }
    if (count > segment_->size / sizeof(uintptr_t)) {
      Refuse("opcodes change %" PRIu64 " words of segment %s", count, segment_->name.c_str());
    }
    for (; count; --count, offset_ += sizeof(uintptr_t) + skip) {
      // One that has wrapped is too large as well.
      if (offset_ >= segment_->size) {
        Refuse("opcodes lead out of segment %s", segment_->name.c_str());
      }
      fix(image_.at<uintptr_t>(image_.base() + segment_->address + offset_));
    }
  }

 private:
  const Image &image_;
  const Segment *segment_ = nullptr;
  uint64_t offset_ = 0;
};

void Rebase(const Image &image) {
  Cursor cursor(image.file().rebases);
  Place place(image);
  const auto rebase = [&image](uintptr_t *word) {
    if (*word >= image.file().extent) {
      Refuse("the pointer 0x%" PRIxPTR " leads out of the image", *word);
    }
    *word += image.base();
  };
  while (!cursor.isAtEnd()) {
    const auto byte = cursor.read<uint8_t>();
    const uint8_t immediate = byte & kImmediate;
    switch (byte & kOpcode) {
      case kRebaseDone:
        return;
      case kRebaseSetType:
        if (immediate != kPointer) {
          Refuse("rebases of type %u are not understood", immediate);
        }
        break;
      case kRebaseSetPlace:
        place.set(immediate, cursor.uleb());
        break;
      case kRebaseAdvance:
        place.advance(cursor.uleb());
        break;
      case kRebaseAdvanceScaled:
        place.advance(immediate * sizeof(uintptr_t));
        break;
      case kRebase:
        place.run(immediate, 0, rebase);
        break;
      case kRebaseTimes:
        place.run(cursor.uleb(), 0, rebase);
        break;
      case kRebaseAndAdvance:
        place.run(1, cursor.uleb(), rebase);
        break;
      case kRebaseTimesAndSkip: {
        const uint64_t count = cursor.uleb();
        place.run(count, cursor.uleb(), rebase);
        break;
      }
      default:
        Refuse("rebase opcode 0x%02x is not understood", byte);
    }
  }
}

class Binder {
 public:
  Binder(const Image &image, const Resolver &resolve)
      : image_(image), resolve_(resolve), place_(image) {}

  /// @param isLazy  Whether each import's opcodes end for themselves.
  void run(Bytes opcodes, bool isLazy) {
    Cursor cursor(opcodes);
    while (!cursor.isAtEnd()) {
      const auto byte = cursor.read<uint8_t>();
      if ((byte & kOpcode) == kBindDone) {
        if (!isLazy) {
          return;
        }
      } else {
        step(byte & kOpcode, byte & kImmediate, &cursor);
      }
    }
  }

 private:
  void step(uint8_t opcode, uint8_t immediate, Cursor *cursor) {
    switch (opcode) {
      case kBindSetLibrary:
        setLibrary(immediate);
        break;
      case kBindSetLibraryUleb:
        setLibrary(cursor->uleb());
        break;
      case kBindSetSpecialLibrary:
        setSpecialLibrary(immediate);
        break;
      case kBindSetSymbol:
        setSymbol(cursor->text(), immediate);
        break;
      case kBindSetType:
        if (immediate != kPointer) {
          Refuse("binds of type %u are not understood", immediate);
        }
        break;
      case kBindSetAddend:
        addend_ = cursor->sleb();
        break;
      case kBindSetPlace:
        place_.set(immediate, cursor->uleb());
        break;
      case kBindAdvance:
        place_.advance(cursor->uleb());
        break;
      case kBind:
        bind(1, 0);
        break;
      case kBindAndAdvance:
        bind(1, cursor->uleb());
        break;
      case kBindAndAdvanceScaled:
        bind(1, immediate * sizeof(uintptr_t));
        break;
      case kBindTimesAndSkip: {
        const uint64_t count = cursor->uleb();
        bind(count, cursor->uleb());
        break;
      }
      default:
        Refuse("bind opcode 0x%02x is not understood", opcode | immediate);
    }
  }

  void setLibrary(uint64_t ordinal) {
    const auto &libraries = image_.file().libraries;
    if (ordinal == 0 || ordinal > libraries.size()) {
      Refuse("library %" PRIu64 " of %zu is not understood", ordinal, libraries.size());
    }
    import_.library = libraries[ordinal - 1];
  }

  void setSpecialLibrary(uint8_t ordinal) {
    constexpr uint8_t kAnyImage = -2 & kImmediate;
    if (ordinal != kAnyImage) {
      Refuse("library -%d is not understood", 16 - ordinal);
    }
    import_.library = {};
  }

  void setSymbol(const char *symbol, uint8_t flags) {
    constexpr uint8_t kWeak = 1;
    if (flags & ~kWeak) {
      Refuse("import %s has flags 0x%x, which are not understood", symbol, flags);
    }
    import_.symbol = symbol;
    import_.isWeak = flags & kWeak;
  }

  void bind(uint64_t count, uint64_t skip) {
    if (import_.symbol.empty()) {
      Refuse("opcodes name no import");
    }
    const uintptr_t address = resolve_(import_);
    if (address == 0 && !import_.isWeak) {
      Refuse("there is no %s of %s", import_.symbol.data(),
             import_.library.empty() ? "any image" : import_.library.data());
    }
    const uintptr_t value = address ? address + static_cast<uintptr_t>(addend_) : 0;
    place_.run(count, skip, [value](uintptr_t *word) { *word = value; });
  }

  const Image &image_;
  const Resolver &resolve_;
  Place place_;
  Import import_{};
  int64_t addend_ = 0;
};

}  // namespace

void ApplyFixups(const Image &image, const Resolver &resolve) {
  Rebase(image);
  const MachoFile &file = image.file();
  Binder(image, resolve).run(file.binds, false);
  Binder(image, resolve).run(file.lazyBinds, true);
}

}  // namespace macho
