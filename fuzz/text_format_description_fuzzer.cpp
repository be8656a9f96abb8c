// Feeds arbitrary bytes to the text sample-entry parser as a subtitle or text description, then
// asks every getter; colours must stay in [0, 1] and nothing may read past the entry.
#include <cstdint>
#include <cstdlib>

#include "media/formatreader/text_format_description.h"
#include "media/formatreader/text_sample.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  FourCC type = (data[0] & 1) ? MxFourCC("text") : MxFourCC("sbtl");
  MxFormatDescriptionRef d;
  if (MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(nullptr, data + 1, size - 1,
                                                                    nullptr, type, &d) != kNoErr)
    return 0;
  int32_t flags;
  int8_t h, v;
  MxTextRect box;
  int16_t font = 0;
  bool bold, italic, underline;
  double fontSize, color[4];
  const std::string* name;
  (void)MxTextFormatDescriptionGetDisplayFlags(d.get(), &flags);
  (void)MxTextFormatDescriptionGetJustification(d.get(), &h, &v);
  (void)MxTextFormatDescriptionGetDefaultTextBox(d.get(), data[0] & 2, 480, &box);
  if (MxTextFormatDescriptionGetDefaultStyle(d.get(), &font, &bold, &italic, &underline, &fontSize,
                                             color) == kNoErr) {
    for (double c : color)
      if (!(c >= 0 && c <= 1)) abort();
  }
  (void)MxTextFormatDescriptionGetFontName(d.get(), font, &name);
  QorTextSampleBufferState state{};
  (void)QorTextSampleBufferSetUpState(&state, nullptr, d.get());
  return 0;
}
