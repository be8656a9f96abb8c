// UTF-8 validity of a byte stream, checked on the way through: a read-only stream that hands on
// the bytes of the stream below unchanged and checks, as they pass, the bytes it has not seen yet.
// A parser reading the source from start to end thus learns whether it was UTF-8 without a second
// pass over the file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/core/byte_stream.h"

// An incremental UTF-8 check over consecutive pieces of one text. A sequence may be split
// between pieces. Overlong forms, surrogates and code points above U+10FFFF are invalid.
class UTF8Checker {
 public:
  void Feed(const uint8_t* bytes, size_t length);
  // The text has ended: a sequence still open is invalid.
  void Finish();
  bool valid() const { return firstInvalid_ < 0; }
  // Offset of the first byte of the first invalid sequence, or -1.
  int64_t firstInvalid() const { return firstInvalid_; }
  // Bytes fed so far.
  int64_t checked() const { return fed_; }

 private:
  void Invalid(int64_t at) {
    if (firstInvalid_ < 0) firstInvalid_ = at;
  }
  int64_t fed_ = 0;
  int64_t firstInvalid_ = -1;
  int64_t sequenceStart_ = 0;
  uint32_t continuationsLeft_ = 0;
  uint8_t low_ = 0x80, high_ = 0xBF;  // the range allowed for the next continuation byte
};

class UTF8CheckingByteStream final : public MxByteStream {
 public:
  explicit UTF8CheckingByteStream(MxByteStream* source)
      : source_(MxByteStreamRef::Retained(source)) {}
  const char* ClassName() const override { return "UTF8CheckingByteStream"; }
  Status Read(size_t size, int64_t offset, void* destination, size_t* bytesRead) override;
  Status GetLength(int64_t offset, int64_t* length) override;

  // What the reads so far have shown. Bytes are checked only as far as the reads reached
  // without a gap from the start; `complete` says whether the end of the stream was reached.
  const UTF8Checker& checker() const { return checker_; }
  bool complete() const { return ended_; }

 private:
  MxByteStreamRef source_;
  UTF8Checker checker_;
  bool ended_ = false;
};

Status UTF8CheckingByteStreamCreate(MxByteStream* source, MxRef<UTF8CheckingByteStream>* out);
