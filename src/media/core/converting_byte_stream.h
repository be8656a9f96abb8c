// A read-only stream that presents the text of the stream below, in a named encoding, as UTF-8.
// The text is converted piece by piece as it is read, so memory stays at a few pieces whatever
// the size of the source. Reads are meant to go forward; a read behind the converted window
// starts the conversion again from the beginning.
//
// Byte sequences that are not valid in the encoding become U+FFFD; the stream counts them and
// keeps the offset, in the source, of the first.
#pragma once

#include <unicode/ucnv.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "media/core/byte_stream.h"

class ConvertingByteStream final : public MxByteStream {
 public:
  ~ConvertingByteStream() override;
  const char* ClassName() const override { return "ConvertingByteStream"; }
  Status Read(size_t size, int64_t offset, void* destination, size_t* bytesRead) override;

  // Invalid sequences met so far, and where the first of them starts in the source (-1: none).
  uint64_t invalidCount() const { return invalidCount_; }
  int64_t firstInvalid() const { return firstInvalid_; }

  // How many source bytes are converted at a time.
  static constexpr size_t kPieceSize = 64 * 1024;

 private:
  friend Status ConvertingByteStreamCreate(MxByteStream*, const char*, int64_t,
                                           MxRef<ConvertingByteStream>*);
  ConvertingByteStream(MxByteStream* source, UConverter* converter, int64_t sourceStart);
  void Restart();
  Status ConvertPiece();
  void AppendUTF8(const UChar* units, size_t count);
  void AppendCodePoint(uint32_t c);

  MxByteStreamRef source_;
  UConverter* converter_;
  const int64_t sourceStart_;
  int64_t sourceOffset_;
  bool sourceEnded_ = false;
  std::vector<uint8_t> out_;  // converted bytes; out_[head_] is at offset outStart_
  size_t head_ = 0;
  int64_t outStart_ = 0;
  UChar pendingLead_ = 0;  // a lead surrogate whose trail is still to come
  std::vector<uint8_t> piece_;
  std::vector<UChar> units_;
  uint64_t invalidCount_ = 0;
  int64_t firstInvalid_ = -1;
  // Source bytes before this offset have been converted once: converting them again after a
  // restart does not count their invalid sequences twice.
  int64_t countedTo_ = 0;
};

// Converts the bytes of `source` from offset `sourceStart` on (past a byte-order mark, say)
// from `encoding`. An encoding without a converter gives kErrBadArgument.
Status ConvertingByteStreamCreate(MxByteStream* source, const char* encoding, int64_t sourceStart,
                                  MxRef<ConvertingByteStream>* out);
