// Unwinding through the image: its linker leaves compact records alone, of which Linux's unwinder
// is told in its own format.

#ifndef MACHO_UNWINDING_H
#define MACHO_UNWINDING_H

#include <cstdint>
#include <vector>

#include "image.h"

namespace macho {

/// @param image  With its fixups applied.
std::vector<uint8_t> DescribeFrames(const Image &image);

/// For the rest of the process.
void RegisterFrames(std::vector<uint8_t> frames);

}  // namespace macho

#endif
