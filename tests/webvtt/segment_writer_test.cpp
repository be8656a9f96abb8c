#include "webvtt/segment_writer.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(SegmentWriter, TimestampsTruncateEveryField) {
  struct Case {
    double seconds;
    const char* text;
  } cases[] = {{0, "00:00:00.000"},        {59.999, "00:00:59.999"}, {60, "00:01:00.000"},
               {86400, "24:00:00.000"},    {1.9999, "00:00:01.999"}, {3725.5, "01:02:05.500"},
               {360000, "100:00:00.000"},  {1.001, "00:00:01.000"},  {0.5, "00:00:00.500"},
               {3599.9995, "00:59:59.999"}};
  for (const Case& c : cases) {
    char text[20];
    int n = FormatWebVTTTimestamp(c.seconds, text);
    EXPECT_STREQ(text, c.text) << c.seconds;
    EXPECT_EQ(n, static_cast<int>(strlen(c.text)));
  }
  // Huge times: hours * 3600 wraps in 32 bits and the text is cut at the 20-byte buffer;
  // out-of-range conversions truncate as the hardware does, so nothing is undefined.
  const Case huge[] = {{1e10, "2777777:143165623:1"},
                       {4294967295.0 * 3600, "4294967295:42233845"},
                       {8e65, "00:00:00.000"},
                       {123456789.987654, "34293:33:09.987"}};
  for (const Case& c : huge) {
    char text[20];
    EXPECT_EQ(FormatWebVTTTimestamp(c.seconds, text), static_cast<int>(strlen(c.text)));
    EXPECT_STREQ(text, c.text) << c.seconds;
  }
}

}  // namespace
