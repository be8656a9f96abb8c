#include "media/core/utf8_checking_byte_stream.h"

#include <cstring>
#include <new>

#include "media/core/error_signal.h"

void UTF8Checker::Feed(const uint8_t* bytes, size_t length) {
  size_t i = 0;
  while (i < length) {
    if (continuationsLeft_ == 0) {
      // Eight ASCII bytes at a time: most subtitle text is ASCII.
      while (i + 8 <= length) {
        uint64_t word;
        memcpy(&word, bytes + i, 8);
        if (word & 0x8080808080808080u) break;
        i += 8;
      }
      if (i == length) break;
      const uint8_t c = bytes[i];
      const int64_t at = fed_ + static_cast<int64_t>(i);
      i++;
      if (c < 0x80) continue;
      sequenceStart_ = at;
      low_ = 0x80;
      high_ = 0xBF;
      if (c >= 0xC2 && c <= 0xDF) {
        continuationsLeft_ = 1;
      } else if (c >= 0xE0 && c <= 0xEF) {
        continuationsLeft_ = 2;
        if (c == 0xE0) low_ = 0xA0;   // overlong
        if (c == 0xED) high_ = 0x9F;  // surrogates
      } else if (c >= 0xF0 && c <= 0xF4) {
        continuationsLeft_ = 3;
        if (c == 0xF0) low_ = 0x90;   // overlong
        if (c == 0xF4) high_ = 0x8F;  // above U+10FFFF
      } else {
        Invalid(at);
      }
      continue;
    }
    const uint8_t c = bytes[i];
    if (c < low_ || c > high_) {
      // The sequence is cut short; this byte starts afresh.
      Invalid(sequenceStart_);
      continuationsLeft_ = 0;
      continue;
    }
    low_ = 0x80;
    high_ = 0xBF;
    continuationsLeft_--;
    i++;
  }
  fed_ += static_cast<int64_t>(length);
}

void UTF8Checker::Finish() {
  if (continuationsLeft_ != 0) Invalid(sequenceStart_);
  continuationsLeft_ = 0;
}

Status UTF8CheckingByteStream::Read(size_t size, int64_t offset, void* destination,
                                    size_t* bytesRead) {
  size_t count = 0;
  Status status = MxByteStreamReadBytes(source_.get(), size, offset, destination, &count);
  if (bytesRead) *bytesRead = count;
  const int64_t next = checker_.checked();
  if (count > 0 && offset <= next && next < offset + static_cast<int64_t>(count)) {
    const size_t skip = static_cast<size_t>(next - offset);
    checker_.Feed(static_cast<const uint8_t*>(destination) + skip, count - skip);
  }
  if (status == kMxErrEndOfStream && offset <= checker_.checked() && !ended_) {
    ended_ = true;
    checker_.Finish();
  }
  return status;
}

Status UTF8CheckingByteStream::GetLength(int64_t offset, int64_t* length) {
  return source_->GetLength(offset, length);
}

Status UTF8CheckingByteStreamCreate(MxByteStream* source, MxRef<UTF8CheckingByteStream>* out) {
  auto* stream = new (std::nothrow) UTF8CheckingByteStream(source);
  if (stream == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
  *out = MxRef<UTF8CheckingByteStream>::Adopt(stream);
  return kNoErr;
}
