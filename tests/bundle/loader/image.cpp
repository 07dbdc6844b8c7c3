#include "image.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace macho {

Image::Space::Space(uint64_t wanted) : size(wanted) {
  void *space = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (space == MAP_FAILED) {
    Refuse("no address space: %s", std::strerror(errno));
  }
  base = reinterpret_cast<uintptr_t>(space);
}

Image::Space::~Space() { munmap(reinterpret_cast<void *>(base), size); }

Image::Image(MachoFile file, int descriptor) : file_(std::move(file)), space_(file_.extent) {
  const auto map = [this](const Segment &segment, uint64_t begin, uint64_t size, int flags,
                          int from, uint64_t offset) {
    if (size == 0) {
      return;
    }
    void *place = reinterpret_cast<void *>(base() + segment.address + begin);
    if (mmap(place, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED | flags, from,
             static_cast<off_t>(offset)) == MAP_FAILED) {
      Refuse("segment %s cannot be mapped: %s", segment.name.c_str(), std::strerror(errno));
    }
  };
  for (const Segment &segment : file_.segments) {
    map(segment, 0, segment.fileSize, 0, descriptor, file_.sliceOffset + segment.offset);
    // What the file does not have is zero, also on the last page that it has something of.
    const uint64_t pages = (segment.fileSize + kPage - 1) / kPage * kPage;
    if (segment.size <= segment.fileSize) {
      continue;
    }
    std::memset(reinterpret_cast<void *>(base() + segment.address + segment.fileSize), 0,
                std::min(pages, segment.size) - segment.fileSize);
    if (segment.size > pages) {
      map(segment, pages, segment.size - pages, MAP_ANONYMOUS, -1, 0);
    }
  }
}

const Segment *Image::segmentAt(uintptr_t address, uint64_t size) const {
  for (const Segment &segment : file_.segments) {
    if (address >= base() && segment.holds(address - base(), size)) {
      return &segment;
    }
  }
  return nullptr;
}

void *Image::check(uintptr_t address, uint64_t size, uint64_t count, size_t alignment) const {
  if (count > file_.extent || !segmentAt(address, size * count)) {
    Refuse("%" PRIu64 " records of %" PRIu64 " bytes are not in the image, but at 0x%" PRIxPTR,
           count, size, address - base());
  }
  if (address % alignment) {
    Refuse("the record at 0x%" PRIxPTR " is not aligned", address - base());
  }
  return reinterpret_cast<void *>(address);
}

const char *Image::text(uintptr_t address) const {
  const Segment *segment = segmentAt(address, 1);
  if (!segment) {
    Refuse("a text is not in the image, but at 0x%" PRIxPTR, address - base());
  }
  const uint64_t offset = address - base() - segment->address;
  return Bytes(reinterpret_cast<void *>(base() + segment->address), segment->size, "a segment")
      .text(offset);
}

uintptr_t Image::code(uintptr_t address) const {
  const Segment *segment = segmentAt(address, 1);
  if (!segment || !(segment->protection & PROT_EXEC)) {
    Refuse("a function is not in the image's code, but at 0x%" PRIxPTR, address - base());
  }
  return address;
}

Bytes Image::rest(uintptr_t address, const char *name) const {
  for (const Section &section : file_.sections) {
    const uint64_t offset = address - base() - section.address;
    if (offset < section.size) {
      return {at<uint8_t>(address, section.size - offset), section.size - offset, name};
    }
  }
  Refuse("%s is in no section, but at 0x%" PRIxPTR, name, address - base());
}

const Section *Image::find(std::string_view name) const {
  const Section *found = nullptr;
  for (const Section &section : file_.sections) {
    if (section.name != name) {
      continue;
    }
    if (found) {
      Refuse("there are two sections %s", section.name.c_str());
    }
    found = &section;
  }
  return found;
}

void Image::protect() const {
  for (const Segment &segment : file_.segments) {
    const int protection =
        segment.isReadOnlyOnceFixed ? segment.protection & ~PROT_WRITE : segment.protection;
    if (segment.size == 0) {
      continue;
    }
    if (mprotect(reinterpret_cast<void *>(base() + segment.address), segment.size, protection) !=
        0) {
      Refuse("segment %s cannot be protected: %s", segment.name.c_str(), std::strerror(errno));
    }
  }
}

}  // namespace macho
