// The file-backed byte stream. Read-only streams keep a 4096-byte cache so that the small,
// sequential and overlapping reads of parsers cost one file read per 4096 bytes.
#pragma once

#include <cstdint>

#include "media/core/byte_stream.h"
#include "media/core/value.h"

// Bits of the `permissions` argument: the low two bits are the access mode; the others ask for
// creation, truncation and an exclusive lock. Any of kMxByteStreamNoCacheMask turns the cache off.
enum : uint32_t {
  kMxByteStreamPermission_Read = 0,
  kMxByteStreamPermission_Write = 1,
  kMxByteStreamPermission_ReadWrite = 2,
  kMxByteStreamPermission_Create = 0x10,
  kMxByteStreamPermission_Truncate = 0x20,
  kMxByteStreamPermission_Lock = 0x100,
  kMxByteStreamNoCacheMask = 0x133,
};

constexpr size_t kFileByteStreamCacheSize = 4096;

Status MxByteStreamCreateForFileURL(MxAllocator* allocator, const MxURL& url, uint32_t permissions,
                                    MxByteStreamRef* out);

// A read-only stream on the file without the cache: every read reads exactly what is asked
// for. For reads scattered through a large file, where 4096 bytes around each would be waste.
Status QorByteStreamCreateUncachedForFileURL(MxAllocator* allocator, const MxURL& url,
                                             MxByteStreamRef* out);
