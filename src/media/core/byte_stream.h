// MxByteStream: an object that reads (and may write) bytes at absolute offsets and answers
// properties such as its URL and length. Reading at or past the end gives kMxErrEndOfStream.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/core/block_buffer.h"
#include "media/core/object.h"

extern const char* const kMxByteStreamProperty_EntireLength;
extern const char* const kMxByteStreamProperty_AvailableLength;
extern const char* const kMxByteStreamProperty_EntireLengthAvailableOnDemand;
extern const char* const kMxByteStreamProperty_URL;
extern const char* const kMxByteStreamProperty_IOPolicy;
extern const char* const kQorByteStreamProperty_FileType;
extern const char* const kQorByteStreamProperty_SandboxExtensionHandle;
extern const char* const kQorByteStreamProperty_MIMEType;

class MxByteStream : public MxObject {
 public:
  // The class-specific table. Each default answers kMxErrUnimplemented.
  virtual Status Read(size_t size, int64_t offset, void* destination, size_t* bytesRead);
  virtual Status Write(size_t size, int64_t offset, const void* source, size_t* bytesWritten);
  virtual Status GetLength(int64_t offset, int64_t* length);
  virtual bool IsEqual(const MxByteStream* other) const;
  // Allocator for memory made on the stream's behalf; none means the default.
  MxAllocator* allocator = nullptr;
};

using MxByteStreamRef = MxRef<MxByteStream>;

Status MxByteStreamReadBytes(MxByteStream* stream, size_t size, int64_t offset, void* destination,
                             size_t* bytesRead);

// Reads exactly `size` bytes at `offset`, going on after short reads. kMxErrEndOfStream when the
// stream ends first, with `*bytesRead` the count read before the read that found the end; any
// other failure as the stream gives it.
Status MxByteStreamReadFully(MxByteStream* stream, size_t size, int64_t offset, void* destination,
                             size_t* bytesRead);

// Reads up to `size` bytes at `offset` into a new block buffer of `size` bytes whose data
// length is the count read. No buffer is returned when nothing was read or the read failed;
// `*bytesRead` still receives the count.
Status MxCreateContiguousBlockBufferFromStream(MxByteStream* stream, size_t size, int64_t offset,
                                               MxBlockBufferRef* out, size_t* bytesRead);
inline Status MxByteStreamReadIntoBlockBuffer(MxByteStream* stream, size_t size, int64_t offset,
                                              MxBlockBufferRef* out, size_t* bytesRead) {
  return MxCreateContiguousBlockBufferFromStream(stream, size, offset, out, bytesRead);
}
