// A bounds-checked cursor over a byte range, reading big-endian integers. Every read either
// succeeds whole or fails and leaves the cursor where it was; nothing is ever read past the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class MxBigEndianReader {
 public:
  MxBigEndianReader(const uint8_t* data, size_t size) : data_(data), size_(data ? size : 0) {}

  size_t Offset() const { return offset_; }
  size_t Remaining() const { return size_ - offset_; }
  size_t Size() const { return size_; }
  const uint8_t* Current() const { return data_ + offset_; }

  [[nodiscard]] bool Skip(size_t count) {
    if (count > Remaining()) return false;
    offset_ += count;
    return true;
  }
  [[nodiscard]] bool Seek(size_t offset) {
    if (offset > size_) return false;
    offset_ = offset;
    return true;
  }
  [[nodiscard]] bool ReadU8(uint8_t* out) { return ReadUnsigned(1, out); }
  [[nodiscard]] bool ReadU16(uint16_t* out) { return ReadUnsigned(2, out); }
  [[nodiscard]] bool ReadU32(uint32_t* out) { return ReadUnsigned(4, out); }
  [[nodiscard]] bool ReadU64(uint64_t* out) { return ReadUnsigned(8, out); }
  [[nodiscard]] bool ReadS8(int8_t* out) { return ReadSigned<uint8_t>(out); }
  [[nodiscard]] bool ReadS16(int16_t* out) { return ReadSigned<uint16_t>(out); }
  [[nodiscard]] bool ReadS32(int32_t* out) { return ReadSigned<uint32_t>(out); }
  [[nodiscard]] bool ReadS64(int64_t* out) { return ReadSigned<uint64_t>(out); }
  [[nodiscard]] bool ReadBytes(size_t count, const uint8_t** out) {
    if (count > Remaining()) return false;
    *out = Current();
    offset_ += count;
    return true;
  }
  // A reader over the next `count` bytes; this cursor moves past them.
  [[nodiscard]] bool Sub(size_t count, MxBigEndianReader* out) {
    const uint8_t* start;
    if (!ReadBytes(count, &start)) return false;
    *out = MxBigEndianReader(start, count);
    return true;
  }

 private:
  template <class T>
  bool ReadUnsigned(size_t width, T* out) {
    if (width > Remaining()) return false;
    uint64_t v = 0;
    for (size_t i = 0; i < width; ++i) v = (v << 8) | data_[offset_ + i];
    offset_ += width;
    *out = static_cast<T>(v);
    return true;
  }
  template <class U, class S>
  bool ReadSigned(S* out) {
    U u;
    if (!ReadUnsigned(sizeof(U), &u)) return false;
    *out = static_cast<S>(u);  // two's complement, defined since C++20
    return true;
  }

  const uint8_t* data_;
  size_t size_;
  size_t offset_ = 0;
};
