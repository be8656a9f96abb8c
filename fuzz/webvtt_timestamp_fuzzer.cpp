// Feeds arbitrary bytes to the cue timestamp reader; the cursor must never leave the input.
#include <cstdint>
#include <cstdlib>

#include "media/formats/webvtt/webvtt_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  WebVTTParser parser;
  parser.commaDecimal = data[0] & 1;
  const char* begin = reinterpret_cast<const char*>(data + 1);
  const char* cursor = begin;
  size_t remaining = size - 1;
  double seconds = 0;
  bool space = false;
  if (WebVTTParseTimestamp(&parser, &cursor, &remaining, &seconds, data[0] & 2, &space) == kNoErr) {
    if (cursor < begin || cursor + remaining != begin + (size - 1)) abort();
  }
  return 0;
}
