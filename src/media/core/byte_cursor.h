// A bounds-checked cursor over a byte range. Every read either succeeds whole or fails and leaves
// the cursor where it was; nothing is ever read past the end. Integers are big-endian unless the
// name says LE.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Big-endian unsigned integer of `width` (at most 8) bytes at `p`, for bytes whose bounds the
// caller has already checked (a table validated when it was parsed).
inline uint64_t MxLoadBigEndian(const uint8_t* p, size_t width) {
  uint64_t v = 0;
  for (size_t i = 0; i < width; ++i) v = (v << 8) | p[i];
  return v;
}
// The same at `offset` of a table whose bounds were checked when it was parsed.
inline uint64_t MxLoadBigEndian(std::span<const uint8_t> table, size_t offset, size_t width) {
  return MxLoadBigEndian(table.data() + offset, width);
}

class MxByteCursor {
 public:
  MxByteCursor() = default;
  MxByteCursor(const uint8_t* data, size_t size) : data_(data), size_(data ? size : 0) {}
  explicit MxByteCursor(std::span<const uint8_t> bytes)
      : MxByteCursor(bytes.data(), bytes.size()) {}

  size_t Offset() const { return offset_; }
  size_t Remaining() const { return size_ - offset_; }
  size_t Size() const { return size_; }
  bool AtEnd() const { return offset_ == size_; }
  const uint8_t* Current() const { return data_ + offset_; }
  std::span<const uint8_t> Rest() const { return {Current(), Remaining()}; }

  [[nodiscard]] bool Skip(uint64_t count) {
    if (count > Remaining()) return false;
    offset_ += static_cast<size_t>(count);
    return true;
  }
  [[nodiscard]] bool Seek(uint64_t offset) {
    if (offset > size_) return false;
    offset_ = static_cast<size_t>(offset);
    return true;
  }
  [[nodiscard]] bool ReadU8(uint8_t* out) { return Read(1, false, out); }
  [[nodiscard]] bool ReadU16(uint16_t* out) { return Read(2, false, out); }
  [[nodiscard]] bool ReadU24(uint32_t* out) { return Read(3, false, out); }
  [[nodiscard]] bool ReadU32(uint32_t* out) { return Read(4, false, out); }
  [[nodiscard]] bool ReadU64(uint64_t* out) { return Read(8, false, out); }
  [[nodiscard]] bool ReadU16LE(uint16_t* out) { return Read(2, true, out); }
  [[nodiscard]] bool ReadU32LE(uint32_t* out) { return Read(4, true, out); }
  [[nodiscard]] bool ReadU64LE(uint64_t* out) { return Read(8, true, out); }
  [[nodiscard]] bool ReadS8(int8_t* out) { return ReadSigned<uint8_t>(out); }
  [[nodiscard]] bool ReadS16(int16_t* out) { return ReadSigned<uint16_t>(out); }
  [[nodiscard]] bool ReadS32(int32_t* out) { return ReadSigned<uint32_t>(out); }
  // A 32-bit field when `wide` is false, a 64-bit one otherwise (the version-dependent fields of
  // full boxes).
  [[nodiscard]] bool ReadU32or64(bool wide, uint64_t* out) {
    return Read(wide ? 8 : 4, false, out);
  }
  [[nodiscard]] bool ReadBytes(size_t count, const uint8_t** out) {
    if (count > Remaining()) return false;
    *out = Current();
    offset_ += count;
    return true;
  }
  // Takes the next `count` bytes as a span of their own.
  [[nodiscard]] bool Take(size_t count, std::span<const uint8_t>* out) {
    const uint8_t* start;
    if (!ReadBytes(count, &start)) return false;
    *out = {start, count};
    return true;
  }
  // A cursor over the next `count` bytes; this cursor moves past them.
  [[nodiscard]] bool Sub(size_t count, MxByteCursor* out) {
    const uint8_t* start;
    if (!ReadBytes(count, &start)) return false;
    *out = MxByteCursor(start, count);
    return true;
  }

 private:
  template <class T>
  bool Read(size_t width, bool littleEndian, T* out) {
    if (width > Remaining()) return false;
    uint64_t v = 0;
    if (littleEndian) {
      for (size_t i = width; i-- > 0;) v = (v << 8) | data_[offset_ + i];
    } else {
      v = MxLoadBigEndian(data_ + offset_, width);
    }
    offset_ += width;
    *out = static_cast<T>(v);
    return true;
  }
  template <class U, class S>
  bool ReadSigned(S* out) {
    U u;
    if (!Read(sizeof(U), false, &u)) return false;
    *out = static_cast<S>(u);  // two's complement, defined since C++20
    return true;
  }

  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
  size_t offset_ = 0;
};
