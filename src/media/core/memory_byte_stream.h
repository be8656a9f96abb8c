// A read-only byte stream over bytes in memory (copied at creation).
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/core/byte_stream.h"

Status MxByteStreamCreateForMemory(const uint8_t* bytes, size_t length, MxByteStreamRef* out);
