#include "media/core/encoding_detection.h"

#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>

#include <cstring>
#include <memory>

#include "media/core/error_signal.h"

namespace {

struct DetectorClose {
  void operator()(UCharsetDetector* detector) const { ucsdet_close(detector); }
};

// Latin-1 and Latin-5 are named by their Windows supersets, which differ only where the ISO sets
// have control characters that no subtitle holds (0x80 to 0x9F): a source whose sample showed
// none of those bytes may still have curly quotes or a euro sign further on.
const char* WidenedLatinSet(const char* name) {
  if (strcmp(name, "ISO-8859-1") == 0) return "windows-1252";
  if (strcmp(name, "ISO-8859-9") == 0) return "windows-1254";
  return name;
}

// Greek in windows-1253 and in ISO-8859-7 look alike to the detector, but they place the capital
// alpha with tonos differently: 0xA2 in the Windows set (where ISO has a quotation mark) and 0xB6
// in the ISO set (where Windows has a pilcrow). That letter is common and those two marks are
// rare, so whichever position is used more decides.
const char* GreekSet(const uint8_t* bytes, size_t length) {
  size_t windows = 0, iso = 0;
  for (size_t i = 0; i < length; i++) {
    windows += bytes[i] == 0xA2;
    iso += bytes[i] == 0xB6;
  }
  return windows > iso ? "windows-1253" : "ISO-8859-7";
}

}  // namespace

ByteOrderMark FindByteOrderMark(const uint8_t* b, size_t n) {
  // UTF-32LE's mark begins with UTF-16LE's: it is looked for first.
  if (n >= 4 && b[0] == 0xFF && b[1] == 0xFE && b[2] == 0 && b[3] == 0) return {"UTF-32LE", 4};
  if (n >= 4 && b[0] == 0 && b[1] == 0 && b[2] == 0xFE && b[3] == 0xFF) return {"UTF-32BE", 4};
  if (n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) return {"UTF-8", 3};
  if (n >= 2 && b[0] == 0xFF && b[1] == 0xFE) return {"UTF-16LE", 2};
  if (n >= 2 && b[0] == 0xFE && b[1] == 0xFF) return {"UTF-16BE", 2};
  return {};
}

Status GuessEncoding(const uint8_t* bytes, size_t length, EncodingGuess* out) {
  *out = EncodingGuess{"windows-1252", 0, 0};
  UErrorCode error = U_ZERO_ERROR;
  std::unique_ptr<UCharsetDetector, DetectorClose> detector(ucsdet_open(&error));
  if (U_FAILURE(error)) return QorSignalErrorAt(kMxErrAllocationFailed);
  const size_t sample = std::min(length, kEncodingSampleSize);
  ucsdet_setText(detector.get(), reinterpret_cast<const char*>(bytes), static_cast<int32_t>(sample),
                 &error);
  int32_t count = 0;
  const UCharsetMatch** matches = ucsdet_detectAll(detector.get(), &count, &error);
  if (U_FAILURE(error)) return kNoErr;  // nothing to go on
  bool first = true;
  for (int32_t i = 0; i < count; i++) {
    const char* name = ucsdet_getName(matches[i], &error);
    const int32_t confidence = ucsdet_getConfidence(matches[i], &error);
    if (U_FAILURE(error)) break;
    if (strcmp(name, "UTF-8") == 0 || !IsKnownEncoding(name)) continue;
    if (!first) {
      out->runnerUp = confidence;
      break;
    }
    *out = EncodingGuess{WidenedLatinSet(name), confidence, 0};
    if (out->encoding == "ISO-8859-7") out->encoding = GreekSet(bytes, sample);
    first = false;
  }
  return kNoErr;
}

bool IsKnownEncoding(const char* name) {
  if (name == nullptr || *name == '\0') return false;
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(name, &error);
  if (converter != nullptr) ucnv_close(converter);
  return U_SUCCESS(error) && converter != nullptr;
}
