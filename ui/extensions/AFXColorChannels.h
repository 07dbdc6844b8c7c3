//
// Splitting of packed colors into channels. Plain C++: no platform object.
//

#ifndef AFX_COLOR_CHANNELS_H
#define AFX_COLOR_CHANNELS_H

#include <array>
#include <cstdint>

/// The components of 0xRRGGBBAA, red first, each byte n as n / 255.0.
constexpr std::array<double, 4> __AFXComponentsOfRGBA(std::uint32_t value) {
  return {((value >> 24) & 0xFF) / 255.0, ((value >> 16) & 0xFF) / 255.0,
          ((value >> 8) & 0xFF) / 255.0, (value & 0xFF) / 255.0};
}

/// 0xRRGGBB as the opaque 0xRRGGBBAA; the value's top byte is dropped.
constexpr std::uint32_t __AFXOpaqueRGBA(std::uint32_t rgb) { return (rgb << 8) + 0xFF; }

#endif
