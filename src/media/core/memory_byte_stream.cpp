#include "media/core/memory_byte_stream.h"

#include <cstring>
#include <new>
#include <vector>

#include "media/core/error_signal.h"

namespace {

class QorMemoryByteStream final : public MxByteStream {
 public:
  explicit QorMemoryByteStream(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}
  const char* ClassName() const override { return "QorMemoryByteStream"; }

  Status Read(size_t size, int64_t offset, void* destination, size_t* bytesRead) override {
    if (offset < 0) return QorSignalErrorAt(kMxErrInvalidParameter);
    if (static_cast<uint64_t>(offset) >= bytes_.size()) return kMxErrEndOfStream;
    size_t n = std::min(size, bytes_.size() - static_cast<size_t>(offset));
    memcpy(destination, bytes_.data() + offset, n);
    if (bytesRead) *bytesRead = n;
    return kNoErr;
  }

  Status GetLength(int64_t, int64_t* length) override {
    if (length == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    *length = static_cast<int64_t>(bytes_.size());
    return kNoErr;
  }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace

Status MxByteStreamCreateForMemory(const uint8_t* bytes, size_t length, MxByteStreamRef* out) {
  auto* stream =
      new (std::nothrow) QorMemoryByteStream(std::vector<uint8_t>(bytes, bytes + length));
  if (stream == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
  *out = MxByteStreamRef::Adopt(stream);
  return kNoErr;
}
