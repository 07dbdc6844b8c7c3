// The slice in memory: its segments mapped from the file itself, as a Mac maps them, so that
// /proc/PID/maps names it.

#ifndef MACHO_IMAGE_H
#define MACHO_IMAGE_H

#include <cstdint>
#include <string_view>

#include "macho_file.h"

namespace macho {

class Image {
 public:
  /// Maps the segments of `file`, which is open as `descriptor`; writable, until `Protect`.
  Image(MachoFile file, int descriptor);

  const MachoFile &file() const { return file_; }
  uintptr_t base() const { return space_.base; }

  bool contains(uintptr_t address) const { return address - base() < file_.extent; }

  /// `count` records of the image at an address; refused unless all of them lie in one segment.
  template <typename T>
  T *at(uintptr_t address, uint64_t count = 1) const {
    return static_cast<T *>(check(address, sizeof(T), count, alignof(T)));
  }

  /// The zero-terminated text there.
  const char *text(uintptr_t address) const;
  /// The address of a function, in a segment that can be executed.
  uintptr_t code(uintptr_t address) const;
  /// From an address to the end of its section.
  Bytes rest(uintptr_t address, const char *name) const;

  /// The section of that name, whichever segment it is in: linkers have moved most of those of
  /// Objective-C from __DATA to __DATA_CONST. nullptr if there is none; refused if there are two.
  const Section *find(std::string_view name) const;

  /// A section as an array.
  template <typename T>
  struct Array {
    T *first = nullptr;
    uint64_t count = 0;
    T *begin() const { return first; }
    T *end() const { return first + count; }
  };
  template <typename T>
  Array<T> arrayOf(const Section &section) const {
    if (section.size % sizeof(T)) {
      Refuse("section %s ends in mid-record", section.name.c_str());
    }
    return {at<T>(base() + section.address, section.size / sizeof(T)), section.size / sizeof(T)};
  }
  template <typename T>
  Array<T> arrayOf(std::string_view name) const {
    const Section *section = find(name);
    return section ? arrayOf<T>(*section) : Array<T>{};
  }

  /// Gives the segments their own protection.
  void protect() const;

 private:
  void *check(uintptr_t address, uint64_t size, uint64_t count, size_t alignment) const;
  const Segment *segmentAt(uintptr_t address, uint64_t size) const;

  /// Address space of its own, for all segments.
  struct Space {
    explicit Space(uint64_t size);
    ~Space();
    Space(const Space &) = delete;
    Space &operator=(const Space &) = delete;
    const uint64_t size;
    uintptr_t base;
  };

  const MachoFile file_;
  const Space space_;
};

}  // namespace macho

#endif
