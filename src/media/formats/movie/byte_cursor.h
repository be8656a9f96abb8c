// A bounds-checked reader over a span of big-endian bytes. Every read either succeeds or leaves
// the cursor where it was and answers false; nothing can be read past the end of the span.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

class ByteCursor {
 public:
  ByteCursor() = default;
  explicit ByteCursor(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  size_t Remaining() const { return bytes_.size() - pos_; }
  size_t Position() const { return pos_; }
  bool AtEnd() const { return pos_ == bytes_.size(); }

  [[nodiscard]] bool ReadU8(uint8_t* out) { return ReadBigEndian(1, out); }
  [[nodiscard]] bool ReadU16(uint16_t* out) { return ReadBigEndian(2, out); }
  [[nodiscard]] bool ReadU24(uint32_t* out) { return ReadBigEndian(3, out); }
  [[nodiscard]] bool ReadU32(uint32_t* out) { return ReadBigEndian(4, out); }
  [[nodiscard]] bool ReadU64(uint64_t* out) { return ReadBigEndian(8, out); }
  [[nodiscard]] bool ReadS32(int32_t* out) {
    uint32_t u;
    if (!ReadU32(&u)) return false;
    *out = static_cast<int32_t>(u);
    return true;
  }
  [[nodiscard]] bool ReadS64(int64_t* out) {
    uint64_t u;
    if (!ReadU64(&u)) return false;
    *out = static_cast<int64_t>(u);
    return true;
  }
  // A 32-bit field when `wide` is false, a 64-bit one otherwise (the version-dependent fields of
  // full boxes).
  [[nodiscard]] bool ReadU32or64(bool wide, uint64_t* out) {
    if (wide) return ReadU64(out);
    uint32_t u;
    if (!ReadU32(&u)) return false;
    *out = u;
    return true;
  }
  [[nodiscard]] bool Skip(size_t n) {
    if (n > Remaining()) return false;
    pos_ += n;
    return true;
  }
  // Takes the next `n` bytes as a span of their own.
  [[nodiscard]] bool Take(size_t n, std::span<const uint8_t>* out) {
    if (n > Remaining()) return false;
    *out = bytes_.subspan(pos_, n);
    pos_ += n;
    return true;
  }
  std::span<const uint8_t> Rest() const { return bytes_.subspan(pos_); }

 private:
  template <class T>
  bool ReadBigEndian(size_t width, T* out) {
    if (width > Remaining()) return false;
    uint64_t v = 0;
    for (size_t i = 0; i < width; ++i) v = (v << 8) | bytes_[pos_ + i];
    pos_ += width;
    *out = static_cast<T>(v);
    return true;
  }

  std::span<const uint8_t> bytes_;
  size_t pos_ = 0;
};

// Reads a big-endian unsigned integer of `width` bytes at `index * width` in a table whose
// bounds were checked when the table was parsed.
inline uint64_t ReadTableField(std::span<const uint8_t> table, size_t byteOffset, size_t width) {
  uint64_t v = 0;
  for (size_t i = 0; i < width; ++i) v = (v << 8) | table[byteOffset + i];
  return v;
}

constexpr uint32_t FourCC(const char (&s)[5]) {
  return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
         (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}
