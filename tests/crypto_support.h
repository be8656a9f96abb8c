// AES-128-CBC decryption for tests, so that encrypted output is checked by decrypting it.
#pragma once

#include <array>
#include <cstdint>
#include <string>

// Decrypts and removes PKCS#7 padding; returns "<decrypt failed>" on a bad key or padding.
std::string DecryptAes128Cbc(const uint8_t key[16], const std::array<uint8_t, 16>& iv,
                             const std::string& cipher);
// An IV written as hex digits, read as a 128-bit integer (short forms have leading zeros).
std::array<uint8_t, 16> IVFromHex(const std::string& hex);
