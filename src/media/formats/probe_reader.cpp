#include "media/formats/probe_reader.h"

#include <algorithm>
#include <cstring>

#include "media/core/error_signal.h"

ProbeReader::ProbeReader(ReadFunction read, int64_t length, size_t budget)
    : read_(std::move(read)), length_(length < 0 ? 0 : length), budget_(budget) {}

ProbeReader ProbeReader::ForMemory(const uint8_t* bytes, size_t length, size_t budget) {
  auto read = [bytes, length](int64_t offset, size_t size, uint8_t* destination, size_t* got) {
    *got = 0;
    if (offset < 0 || static_cast<uint64_t>(offset) >= length) return Status{kNoErr};
    *got = std::min(size, length - static_cast<size_t>(offset));
    memcpy(destination, bytes + offset, *got);
    return Status{kNoErr};
  };
  return ProbeReader(read, static_cast<int64_t>(length), budget);
}

Status ProbeReader::ForByteStream(MxByteStream* stream, ProbeReader* out, size_t budget) {
  if (stream == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  int64_t length = 0;
  Status status = stream->GetLength(0, &length);
  if (status != kNoErr) return status;
  MxByteStreamRef kept = MxByteStreamRef::Retained(stream);
  auto read = [kept](int64_t offset, size_t size, uint8_t* destination, size_t* got) {
    return MxByteStreamReadBytes(kept.get(), size, offset, destination, got);
  };
  *out = ProbeReader(read, length, budget);
  return kNoErr;
}

Status ProbeReader::ReadAt(int64_t offset, size_t size, std::vector<uint8_t>* out) {
  out->clear();
  if (offset < 0) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (offset >= length_) return kNoErr;
  size = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(size), length_ - offset));
  if (size > budget_ - bytesRead_) return QorSignalErrorAt(kMxErrProbeLimitExceeded);
  out->resize(size);
  size_t total = 0;
  while (total < size) {
    size_t got = 0;
    Status status =
        read_(offset + static_cast<int64_t>(total), size - total, out->data() + total, &got);
    if (status == kMxErrEndOfStream || (status == kNoErr && got == 0)) break;
    if (status != kNoErr) {
      out->clear();
      return status;
    }
    total += got;
  }
  out->resize(total);
  bytesRead_ += total;
  return kNoErr;
}
