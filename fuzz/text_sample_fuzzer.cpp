// Decodes arbitrary bytes as a timed-text sample. The first byte gives the length of a sample
// entry to take the track's defaults from (0: a fixed timed-text entry with a font table); the
// rest is the sample. A decoded string must be valid UTF-16 whose attribute runs cover it
// exactly, in order.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "media/core/text_encoding.h"
#include "media/formatreader/text_sample.h"

namespace {

MxFormatDescriptionRef FixedDescription() {
  static const uint8_t entry[] = {
      0,    0, 0, 62, 't', 'x',  '3', 'g', 0,   0,    0,   0,   0, 0,   0,   1,  // header
      0xA0, 0, 0, 0,  1,   0xFF, 0,   0,   0,   0xFF,            // flags, justification, bg
      0,    0, 0, 0,  0,   100,  1,   0,                         // text box
      0,    0, 0, 0,  0,   1,    1,   18,  255, 255,  255, 255,  // default style
      0,    0, 0, 16, 'f', 't',  'a', 'b', 0,   1,    0,   1,   3, 'S', 'a', 'n'};
  MxFormatDescriptionRef d;
  if (MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
          nullptr, entry, sizeof entry, nullptr, MxFourCC("sbtl"), &d) != kNoErr)
    abort();
  return d;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static MxFormatDescription* const fixed = FixedDescription().Detach();  // kept for the run
  size_t entryLength = data[0];
  if (entryLength > size - 1) return 0;
  MxFormatDescriptionRef d;
  if (entryLength == 0 ||
      MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
          nullptr, data + 1, entryLength, nullptr, MxFourCC("sbtl"), &d) != kNoErr)
    d = MxFormatDescriptionRef::Retained(fixed);
  const uint8_t* sample = data + 1 + entryLength;
  size_t sampleSize = size - 1 - entryLength;

  MxBlockBufferRef block;
  if (sampleSize > 0) {
    if (MxBlockBufferCreateWithMemoryBlock(nullptr, const_cast<uint8_t*>(sample), sampleSize,
                                           MxAllocatorGetNull(), nullptr, 0, sampleSize, 0,
                                           &block) != kNoErr)
      abort();
  }
  MxSampleBufferRef buffer;
  if (MxSampleBufferCreate(nullptr, block.get(), d.get(), kMxTimeZero, kMxTimeZero, &buffer) !=
      kNoErr)
    abort();
  QorTextSampleBufferState state{};
  MxAttributedStringRef string;
  bool forced, flag29;
  MxTextRect box;
  if (QorTextSampleBufferCopyAttributedString(&state, nullptr, buffer.get(), &string, &forced,
                                              &flag29, &box) != kNoErr)
    return 0;
  std::string utf8;
  if (MxTextCreateUTF8FromUTF16(string->string().data(), string->string().size(), &utf8) != kNoErr)
    abort();
  const int64_t length = string->length();
  for (int64_t p = 0; p < length;) {
    MxRange range;
    if (string->AttributesAtIndex(p, {p, length - p}, &range) == nullptr) abort();
    if (range.location != p || range.length <= 0 || range.End() > length) abort();
    p = range.End();
  }
  return 0;
}
