// Bounded reading for container probes. A probe asks for bytes at an offset; the reader takes
// them from a byte stream or from memory and keeps a running total, so that no probe reads more
// than a few megabytes however large (or however hostile) the file is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "common/status.h"
#include "media/core/byte_stream.h"

// The most any one probe reads in all.
inline constexpr size_t kProbeReadBudget = 8u << 20;

class ProbeReader {
 public:
  // Reads up to `size` bytes at `offset` into `destination`; `*got` receives the count. Reading
  // at or past the end may answer kMxErrEndOfStream or a count of zero.
  using ReadFunction =
      std::function<Status(int64_t offset, size_t size, uint8_t* destination, size_t* got)>;

  ProbeReader(ReadFunction read, int64_t length, size_t budget = kProbeReadBudget);

  // A reader over bytes that the caller keeps alive while the reader is used.
  static ProbeReader ForMemory(const uint8_t* bytes, size_t length,
                               size_t budget = kProbeReadBudget);
  // A reader over a byte stream, which must know its length.
  static Status ForByteStream(MxByteStream* stream, ProbeReader* out,
                              size_t budget = kProbeReadBudget);

  int64_t Length() const { return length_; }
  size_t BytesRead() const { return bytesRead_; }

  // Reads up to `size` bytes at `offset` into `out`, which ends up holding exactly the bytes
  // read: fewer than asked at the end of the data, none at or past it. Asking for more than the
  // budget has left fails with kMxErrProbeLimitExceeded.
  Status ReadAt(int64_t offset, size_t size, std::vector<uint8_t>* out);

 private:
  ReadFunction read_;
  int64_t length_;
  size_t budget_;
  size_t bytesRead_ = 0;
};
