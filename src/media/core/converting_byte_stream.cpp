#include "media/core/converting_byte_stream.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "media/core/error_signal.h"

ConvertingByteStream::ConvertingByteStream(MxByteStream* source, UConverter* converter,
                                           int64_t sourceStart)
    : source_(MxByteStreamRef::Retained(source)),
      converter_(converter),
      sourceStart_(sourceStart),
      sourceOffset_(sourceStart),
      piece_(kPieceSize),
      units_(kPieceSize) {}

ConvertingByteStream::~ConvertingByteStream() {
  ucnv_close(converter_);
}

void ConvertingByteStream::Restart() {
  ucnv_resetToUnicode(converter_);
  sourceOffset_ = sourceStart_;
  sourceEnded_ = false;
  out_.clear();
  head_ = 0;
  outStart_ = 0;
  pendingLead_ = 0;
}

namespace {

uint8_t* PutCodePoint(uint8_t* p, uint32_t c) {
  if (c < 0x80) {
    *p++ = static_cast<uint8_t>(c);
  } else if (c < 0x800) {
    *p++ = static_cast<uint8_t>(0xC0 | (c >> 6));
    *p++ = static_cast<uint8_t>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *p++ = static_cast<uint8_t>(0xE0 | (c >> 12));
    *p++ = static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F));
    *p++ = static_cast<uint8_t>(0x80 | (c & 0x3F));
  } else {
    *p++ = static_cast<uint8_t>(0xF0 | (c >> 18));
    *p++ = static_cast<uint8_t>(0x80 | ((c >> 12) & 0x3F));
    *p++ = static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F));
    *p++ = static_cast<uint8_t>(0x80 | (c & 0x3F));
  }
  return p;
}

}  // namespace

void ConvertingByteStream::AppendCodePoint(uint32_t c) {
  uint8_t bytes[4];
  out_.insert(out_.end(), bytes, PutCodePoint(bytes, c));
}

void ConvertingByteStream::AppendUTF8(const UChar* units, size_t count) {
  // Each unit makes at most three bytes (a pair makes four from two), plus three for a lead
  // surrogate left over from the previous call that turns out to be alone.
  const size_t used = out_.size();
  out_.resize(used + count * 3 + 3);
  uint8_t* p = out_.data() + used;
  for (size_t i = 0; i < count; i++) {
    const uint32_t u = units[i];
    if (u < 0x80 && pendingLead_ == 0) {
      *p++ = static_cast<uint8_t>(u);
      continue;
    }
    if (pendingLead_ != 0) {
      const uint32_t lead = pendingLead_;
      pendingLead_ = 0;
      if (u >= 0xDC00 && u <= 0xDFFF) {
        p = PutCodePoint(p, 0x10000 + ((lead - 0xD800) << 10) + (u - 0xDC00));
        continue;
      }
      p = PutCodePoint(p, 0xFFFD);
    }
    if (u >= 0xD800 && u <= 0xDBFF) {
      pendingLead_ = static_cast<UChar>(u);
    } else if (u >= 0xDC00 && u <= 0xDFFF) {
      p = PutCodePoint(p, 0xFFFD);
    } else {
      p = PutCodePoint(p, u);
    }
  }
  out_.resize(static_cast<size_t>(p - out_.data()));
}

Status ConvertingByteStream::ConvertPiece() {
  size_t count = 0;
  Status status =
      MxByteStreamReadBytes(source_.get(), piece_.size(), sourceOffset_, piece_.data(), &count);
  if (status != kNoErr && status != kMxErrEndOfStream) return status;
  const bool flush = status == kMxErrEndOfStream || count == 0;
  const int64_t pieceOffset = sourceOffset_;
  const char* source = reinterpret_cast<const char*>(piece_.data());
  const char* const begin = source;
  const char* const end = source + count;
  for (;;) {
    UChar* target = units_.data();
    UErrorCode error = U_ZERO_ERROR;
    ucnv_toUnicode(converter_, &target, units_.data() + units_.size(), &source, end, nullptr, flush,
                   &error);
    AppendUTF8(units_.data(), static_cast<size_t>(target - units_.data()));
    if (error == U_BUFFER_OVERFLOW_ERROR) continue;
    // Bytes that are not text in the encoding, or an escape sequence it does not know (stateful
    // encodings such as ISO-2022-JP), are invalid input, not a failure of the stream.
    if (error == U_ILLEGAL_CHAR_FOUND || error == U_INVALID_CHAR_FOUND ||
        error == U_TRUNCATED_CHAR_FOUND || error == U_ILLEGAL_ESCAPE_SEQUENCE ||
        error == U_UNSUPPORTED_ESCAPE_SEQUENCE) {
      // The bad bytes are consumed; they may have begun in the previous piece.
      char bad[32];
      int8_t badLength = sizeof bad;
      UErrorCode badError = U_ZERO_ERROR;
      ucnv_getInvalidChars(converter_, bad, &badLength, &badError);
      if (U_FAILURE(badError)) badLength = 0;
      const int64_t at = pieceOffset + (source - begin) - badLength;
      if (pieceOffset >= countedTo_) {
        if (firstInvalid_ < 0 || at < firstInvalid_) firstInvalid_ = at;
        invalidCount_++;
      }
      AppendUTF8(u"\uFFFD", 1);
      if (source < end || !flush) continue;
      break;
    }
    if (U_FAILURE(error)) return QorSignalErrorAt(kMxErrFormatDamaged);
    break;
  }
  sourceOffset_ += static_cast<int64_t>(count);
  if (count > 0) countedTo_ = std::max(countedTo_, sourceOffset_);
  if (flush) {
    if (pendingLead_ != 0) {
      pendingLead_ = 0;
      AppendCodePoint(0xFFFD);
    }
    sourceEnded_ = true;
    countedTo_ = std::max(countedTo_, sourceOffset_ + 1);  // the end's report is counted once too
  }
  return kNoErr;
}

Status ConvertingByteStream::Read(size_t size, int64_t offset, void* destination,
                                  size_t* bytesRead) {
  if (bytesRead) *bytesRead = 0;
  if (offset < 0 || destination == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (offset < outStart_) Restart();
  for (;;) {
    const int64_t available = outStart_ + static_cast<int64_t>(out_.size() - head_);
    if (offset + static_cast<int64_t>(size) <= available || sourceEnded_) break;
    // Bytes before the read are done with: the window moves on.
    const size_t drop =
        static_cast<size_t>(std::min<int64_t>(offset - outStart_, available - outStart_));
    head_ += drop;
    outStart_ += static_cast<int64_t>(drop);
    if (head_ > 0 && head_ * 2 >= out_.size()) {
      out_.erase(out_.begin(), out_.begin() + static_cast<std::ptrdiff_t>(head_));
      head_ = 0;
    }
    Status status = ConvertPiece();
    if (status != kNoErr) {
      // A failed piece leaves the converter mid-way: the next read starts over, so that it
      // fails the same way instead of going on from a broken state.
      Restart();
      return status;
    }
  }
  const int64_t available = outStart_ + static_cast<int64_t>(out_.size() - head_);
  if (offset >= available) return kMxErrEndOfStream;
  const size_t n = std::min(size, static_cast<size_t>(available - offset));
  memcpy(destination, out_.data() + head_ + (offset - outStart_), n);
  if (bytesRead) *bytesRead = n;
  return kNoErr;
}

Status ConvertingByteStreamCreate(MxByteStream* source, const char* encoding, int64_t sourceStart,
                                  MxRef<ConvertingByteStream>* out) {
  if (source == nullptr || encoding == nullptr || *encoding == '\0' || sourceStart < 0)
    return QorSignalErrorAt(kErrBadArgument);
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(encoding, &error);
  if (U_FAILURE(error) || converter == nullptr) return QorSignalErrorAt(kErrBadArgument);
  ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
  auto* stream = new (std::nothrow) ConvertingByteStream(source, converter, sourceStart);
  if (stream == nullptr) {
    ucnv_close(converter);
    return QorSignalErrorAt(kMxErrAllocationFailed);
  }
  *out = MxRef<ConvertingByteStream>::Adopt(stream);
  return kNoErr;
}
