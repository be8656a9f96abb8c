// Four-character codes: four bytes read as one big-endian 32-bit number ('sbtl', 'tx3g').
#pragma once

#include <cstdint>
#include <string>

using FourCharCode = uint32_t;

constexpr FourCharCode MxFourCharCode(const char (&text)[5]) {
  return (FourCharCode{static_cast<uint8_t>(text[0])} << 24) |
         (FourCharCode{static_cast<uint8_t>(text[1])} << 16) |
         (FourCharCode{static_cast<uint8_t>(text[2])} << 8) |
         FourCharCode{static_cast<uint8_t>(text[3])};
}

// The four characters of a code, most significant byte first (bytes kept as they are).
inline std::string MxFourCharCodeToString(FourCharCode code) {
  return std::string{static_cast<char>(code >> 24), static_cast<char>(code >> 16),
                     static_cast<char>(code >> 8), static_cast<char>(code)};
}
