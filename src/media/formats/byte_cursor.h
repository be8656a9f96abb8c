// A cursor over a span of bytes that cannot read past its end: every read reports whether the
// bytes were there, and a failed read leaves the cursor where it was.
#pragma once

#include <cstddef>
#include <cstdint>

class ByteCursor {
 public:
  ByteCursor(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  size_t Offset() const { return at_; }
  size_t Remaining() const { return size_ - at_; }
  const uint8_t* Here() const { return data_ + at_; }

  [[nodiscard]] bool Skip(uint64_t count) {
    if (count > Remaining()) return false;
    at_ += static_cast<size_t>(count);
    return true;
  }
  [[nodiscard]] bool Seek(uint64_t offset) {
    if (offset > size_) return false;
    at_ = static_cast<size_t>(offset);
    return true;
  }
  [[nodiscard]] bool U8(uint8_t* v) { return ReadBE(1, v); }
  [[nodiscard]] bool U16BE(uint16_t* v) { return ReadBE(2, v); }
  [[nodiscard]] bool U24BE(uint32_t* v) { return ReadBE(3, v); }
  [[nodiscard]] bool U32BE(uint32_t* v) { return ReadBE(4, v); }
  [[nodiscard]] bool U64BE(uint64_t* v) { return ReadBE(8, v); }
  [[nodiscard]] bool U16LE(uint16_t* v) { return ReadLE(2, v); }
  [[nodiscard]] bool U32LE(uint32_t* v) { return ReadLE(4, v); }
  [[nodiscard]] bool U64LE(uint64_t* v) { return ReadLE(8, v); }

  // A view of the next `count` bytes, taken only when they are all there.
  [[nodiscard]] bool Sub(size_t count, ByteCursor* out) {
    if (count > Remaining()) return false;
    *out = ByteCursor(data_ + at_, count);
    at_ += count;
    return true;
  }

 private:
  template <class T>
  bool ReadBE(size_t count, T* v) {
    if (count > Remaining()) return false;
    T value = 0;
    for (size_t i = 0; i < count; i++) value = static_cast<T>((value << 8) | data_[at_ + i]);
    at_ += count;
    *v = value;
    return true;
  }
  template <class T>
  bool ReadLE(size_t count, T* v) {
    if (count > Remaining()) return false;
    T value = 0;
    for (size_t i = count; i-- > 0;) value = static_cast<T>((value << 8) | data_[at_ + i]);
    at_ += count;
    *v = value;
    return true;
  }

  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

// Big-endian helpers for bytes a caller has already bounds-checked.
inline uint32_t LoadU32BE(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}
inline uint16_t LoadU16BE(const uint8_t* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
