// What the load commands of a bundle's x86_64 slice say, checked against the file. Layouts and
// numbers are those of Apple's <mach-o/loader.h> and <mach-o/fat.h>.
//
// LLVM's Object library reads all of this too. It would bring 130 MB into each process of the
// tests, and takes the file for what it reads, not for what it is going to run.

#ifndef MACHO_MACHO_FILE_H
#define MACHO_MACHO_FILE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bytes.h"

namespace macho {

constexpr uint64_t kPage = 4096;

struct Segment {
  std::string name;
  uint64_t address, size;     ///< From the beginning of the image.
  uint64_t offset, fileSize;  ///< From the beginning of the slice.
  int protection;             ///< As for mprotect, whose bits these are.
  bool isReadOnlyOnceFixed;

  bool holds(uint64_t place, uint64_t length) const {
    return place >= address && place - address <= size && length <= size - (place - address);
  }
};

struct Section {
  std::string segment, name;
  uint64_t address, size;
  bool hasInitializers;
};

struct MachoFile {
  uint64_t sliceOffset;
  uint64_t extent;  ///< Bytes of address space, whole pages.
  std::vector<Segment> segments;
  std::vector<Section> sections;
  std::vector<std::string> libraries;  ///< By their files' names, in the order of their ordinals.
  Bytes rebases, binds, lazyBinds;
  std::map<std::string, uint64_t> exports;
};

/// @param file  A thin or a universal file. `binds` and the like point into it.
MachoFile ReadMachoFile(Bytes file);

}  // namespace macho

#endif
