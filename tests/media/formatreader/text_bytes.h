// Builders of big-endian sample entries and timed-text samples for the text tests.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

struct Bytes {
  std::vector<uint8_t> b;
  Bytes& u8(unsigned v) {
    b.push_back(static_cast<uint8_t>(v));
    return *this;
  }
  Bytes& u16(unsigned v) { return u8(v >> 8).u8(v); }
  Bytes& u32(uint32_t v) { return u16(v >> 16).u16(v & 0xFFFF); }
  Bytes& str(const std::string& s) {
    b.insert(b.end(), s.begin(), s.end());
    return *this;
  }
  Bytes& raw(const Bytes& other) {
    b.insert(b.end(), other.b.begin(), other.b.end());
    return *this;
  }
  // A box: 32-bit size (header included), four-character type, payload.
  Bytes& box(const std::string& type, const Bytes& payload) {
    return u32(static_cast<uint32_t>(8 + payload.b.size())).str(type).raw(payload);
  }
  size_t size() const { return b.size(); }
};

// A font table atom's payload.
inline Bytes FontTable(std::initializer_list<std::pair<unsigned, std::string>> fonts) {
  Bytes p;
  p.u16(static_cast<unsigned>(fonts.size()));
  for (auto& [id, name] : fonts) p.u16(id).u8(static_cast<unsigned>(name.size())).str(name);
  return p;
}

// A 3GPP timed-text sample entry: flags, justification (1, -1), background 10 20 30 40, text box
// (top 1, left 2, bottom 103, right 204), style 0..0 font `font` face `face` size 18 colour
// 255 128 0 255, then `atoms`.
inline Bytes TimedTextEntry(uint32_t flags, unsigned font, unsigned face, const Bytes& atoms,
                            const std::string& type = "tx3g") {
  Bytes e;
  e.u32(0).str(type).u32(0).u16(0).u16(1);
  e.u32(flags).u8(1).u8(0xFF).u8(10).u8(20).u8(30).u8(40);
  e.u16(1).u16(2).u16(103).u16(204);
  e.u16(0).u16(0).u16(font).u8(face).u8(18).u8(255).u8(128).u8(0).u8(255);
  e.raw(atoms);
  uint32_t size = static_cast<uint32_t>(e.size());
  for (size_t i = 0; i < 4; i++) e.b[i] = static_cast<uint8_t>(size >> (24 - 8 * i));
  return e;
}
