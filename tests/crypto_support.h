// Encrypted output checked by decrypting it: AES-128-CBC decryption and a reader for the key
// lines of a playlist.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// Decrypts and removes PKCS#7 padding; returns "<decrypt failed>" on a bad key or padding.
std::string DecryptAes128Cbc(const uint8_t key[16], const std::array<uint8_t, 16>& iv,
                             const std::string& cipher);
// An IV written as hex digits, read as a 128-bit integer (short forms have leading zeros).
std::array<uint8_t, 16> IVFromHex(const std::string& hex);

// One playlist entry with the AES-128 key line in force for it.
struct KeyedEntry {
  std::string uri, keyUri, ivHex;  // ivHex empty: no IV attribute
  uint64_t sequence;               // media sequence number
};
std::vector<KeyedEntry> ReadKeyedPlaylist(const std::string& text);

// Decrypts the segment of `entry` (in `dir`) with its key file and its IV: the one written,
// or the media sequence number when none is.
std::string DecryptEntry(const std::string& dir, const KeyedEntry& entry);
