#include "media/core/text_encoding.h"

#include <unicode/ustring.h>
#include <unicode/utypes.h>

#include <algorithm>
#include <climits>

#include "media/core/error_signal.h"

// The conversions run without a substitution character, so ICU stops at the first ill-formed
// sequence and reports it instead of replacing it. Each converts once into room for the longest
// possible result (a UTF-8 byte gives at most one UTF-16 unit, a UTF-16 unit at most three UTF-8
// bytes), then trims it to what was written; a string reused from call to call keeps its room.

Status MxTextCreateUTF16FromUTF8(const uint8_t* bytes, size_t size, std::u16string* out) {
  if (out == nullptr || (bytes == nullptr && size > 0) || size > INT32_MAX)
    return QorSignalErrorAt(kQorTextSampleErrStringCreation);
  if (size == 0) {
    out->clear();
    return kNoErr;
  }
  const char* source = reinterpret_cast<const char*>(bytes);
  if (out->size() < size) out->resize(size);
  const auto room = static_cast<int32_t>(std::min<size_t>(out->size(), INT32_MAX));
  UErrorCode error = U_ZERO_ERROR;
  int32_t length = 0;
  u_strFromUTF8(out->data(), room, &length, source, static_cast<int32_t>(size), &error);
  if (U_FAILURE(error) || length < 0 || length > room) {
    out->clear();
    return QorSignalErrorAt(kQorTextSampleErrStringCreation);
  }
  out->resize(static_cast<size_t>(length));
  return kNoErr;
}

Status MxTextCreateUTF8FromUTF16(const char16_t* units, size_t count, std::string* out) {
  if (out == nullptr || (units == nullptr && count > 0) || count > INT32_MAX / 3)
    return QorSignalErrorAt(kQorTextSampleErrStringCreation);
  if (count == 0) {
    out->clear();
    return kNoErr;
  }
  if (out->size() < count * 3) out->resize(count * 3);
  const auto room = static_cast<int32_t>(std::min<size_t>(out->size(), INT32_MAX));
  UErrorCode error = U_ZERO_ERROR;
  int32_t length = 0;
  u_strToUTF8(out->data(), room, &length, units, static_cast<int32_t>(count), &error);
  if (U_FAILURE(error) || length < 0 || length > room) {
    out->clear();
    return QorSignalErrorAt(kQorTextSampleErrStringCreation);
  }
  out->resize(static_cast<size_t>(length));
  return kNoErr;
}

Status MxTextCreateUTF16FromBytes(const uint8_t* bytes, size_t size, bool bigEndian,
                                  std::u16string* out) {
  if (out == nullptr || (bytes == nullptr && size > 0) || size % 2 != 0 || size / 2 > INT32_MAX)
    return QorSignalErrorAt(kQorTextSampleErrStringCreation);
  std::u16string units(size / 2, u'\0');
  for (size_t i = 0; i < units.size(); ++i) {
    uint8_t hi = bytes[2 * i + (bigEndian ? 0 : 1)], lo = bytes[2 * i + (bigEndian ? 1 : 0)];
    units[i] = static_cast<char16_t>((hi << 8) | lo);
  }
  // Well-formed UTF-16 is what converts to UTF-8: a lone surrogate stops the conversion.
  UErrorCode error = U_ZERO_ERROR;
  int32_t length = 0;
  u_strToUTF8(nullptr, 0, &length, units.data(), static_cast<int32_t>(units.size()), &error);
  if (error != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(error))
    return QorSignalErrorAt(kQorTextSampleErrStringCreation);
  *out = std::move(units);
  return kNoErr;
}
