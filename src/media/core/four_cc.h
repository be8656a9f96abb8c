// Four-character codes: four bytes read as one big-endian 32-bit number ('sbtl', 'tx3g').
#pragma once

#include <cstdint>
#include <string>

using FourCC = uint32_t;

constexpr FourCC MxFourCC(const char (&text)[5]) {
  return (FourCC{static_cast<uint8_t>(text[0])} << 24) |
         (FourCC{static_cast<uint8_t>(text[1])} << 16) |
         (FourCC{static_cast<uint8_t>(text[2])} << 8) | FourCC{static_cast<uint8_t>(text[3])};
}

// The four characters of a code, most significant byte first (bytes kept as they are).
inline std::string MxFourCCToString(FourCC code) {
  return std::string{static_cast<char>(code >> 24), static_cast<char>(code >> 16),
                     static_cast<char>(code >> 8), static_cast<char>(code)};
}
