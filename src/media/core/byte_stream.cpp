#include "media/core/byte_stream.h"

#include "media/core/error_signal.h"

const char* const kMxByteStreamProperty_EntireLength = "QBS_EntireLength";
const char* const kMxByteStreamProperty_AvailableLength = "QBS_AvailableLength";
const char* const kMxByteStreamProperty_EntireLengthAvailableOnDemand =
    "QBS_EntireLengthAvailableOnDemand";
const char* const kMxByteStreamProperty_URL = "QBS_URL";
const char* const kMxByteStreamProperty_IOPolicy = "QBS_IOPolicy";
const char* const kQorByteStreamProperty_FileType = "QBS_FileType";
const char* const kQorByteStreamProperty_SandboxExtensionHandle = "QBS_SandboxExtensionHandle";
const char* const kQorByteStreamProperty_MIMEType = "QBS_MIMEType";

Status MxByteStream::Read(size_t, int64_t, void*, size_t*) {
  return kMxErrUnimplemented;
}

Status MxByteStream::Write(size_t, int64_t, const void*, size_t*) {
  return kMxErrUnimplemented;
}

Status MxByteStream::GetLength(int64_t, int64_t*) {
  return kMxErrUnimplemented;
}

bool MxByteStream::IsEqual(const MxByteStream* other) const {
  return this == other;
}

Status MxByteStreamReadBytes(MxByteStream* stream, size_t size, int64_t offset, void* destination,
                             size_t* bytesRead) {
  if (stream == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return stream->Read(size, offset, destination, bytesRead);
}

Status MxByteStreamReadFully(MxByteStream* stream, size_t size, int64_t offset, void* destination,
                             size_t* bytesRead) {
  uint8_t* bytes = static_cast<uint8_t*>(destination);
  size_t done = 0;
  Status err = kNoErr;
  while (done < size) {
    size_t got = 0;
    err = MxByteStreamReadBytes(stream, size - done, offset + int64_t(done), bytes + done, &got);
    if (err == kMxErrEndOfStream || (err == kNoErr && got == 0)) {
      err = kMxErrEndOfStream;
      break;
    }
    if (err != kNoErr) break;
    done += got;
  }
  *bytesRead = done;
  return err;
}

Status MxCreateContiguousBlockBufferFromStream(MxByteStream* stream, size_t size, int64_t offset,
                                               MxBlockBufferRef* out, size_t* bytesRead) {
  if (out) *out = nullptr;
  if (bytesRead) *bytesRead = 0;
  if (stream == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (size == 0) return kNoErr;
  MxAllocator* allocator = MxAllocatorResolve(stream->allocator);
  void* memory = allocator->Allocate(size);
  if (memory == nullptr) return QorSignalErrorAt(kMxErrOutOfMemory);
  size_t count = 0;
  Status status = stream->Read(size, offset, memory, &count);
  if (bytesRead) *bytesRead = count;
  if (status != kNoErr || count == 0) {
    allocator->Deallocate(memory, size);
    return status;
  }
  // The block buffer takes the memory over and frees it through the same allocator.
  MxBlockBufferRef buffer;
  status = MxBlockBufferCreateWithMemoryBlock(nullptr, memory, size, allocator, nullptr, 0, count,
                                              0, &buffer);
  if (status != kNoErr) {
    allocator->Deallocate(memory, size);
    return status;
  }
  if (out) *out = std::move(buffer);
  return kNoErr;
}
