// The start of a fragmented movie segment from hostile bytes. The input is a 16-bit big-endian
// length, an init segment of that length, then a media segment.
#include <cstddef>
#include <cstdint>
#include <string>

#include "media/core/memory_byte_stream.h"
#include "media/formats/movie/fragment_start.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t initSize = size_t(data[0]) << 8 | data[1];
  if (initSize > size - 2) return 0;
  MxByteStreamRef init, segment;
  if (MxByteStreamCreateForMemory(data + 2, initSize, &init) != kNoErr ||
      MxByteStreamCreateForMemory(data + 2 + initSize, size - 2 - initSize, &segment) != kNoErr)
    return 0;
  FragmentStart start;
  std::string problem;
  if (ReadFragmentInitTrack(init.get(), &start, &problem) != kNoErr) return 0;
  if (ReadFirstFragmentTiming(segment.get(), &start, &problem) != kNoErr) return 0;
  int64_t pts = 0;
  (void)FragmentStartIn90kHz(start, &pts);
  return 0;
}
