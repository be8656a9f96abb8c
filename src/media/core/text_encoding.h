// Conversion between UTF-8 and UTF-16. Invalid input (malformed or overlong UTF-8, lone
// surrogates) is refused with kQorTextSampleErrStringCreation rather than passed on altered.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/status.h"

Status MxTextCreateUTF16FromUTF8(const uint8_t* bytes, size_t size, std::u16string* out);
// UTF-16 code units stored as bytes in big-endian or little-endian order. An odd byte count is
// invalid.
Status MxTextCreateUTF16FromBytes(const uint8_t* bytes, size_t size, bool bigEndian,
                                  std::u16string* out);
Status MxTextCreateUTF8FromUTF16(const char16_t* units, size_t count, std::string* out);
