#include "webvtt/segment_writer.h"

#include <gtest/gtest.h>

#include "chunk_settings.h"
#include "test_support.h"
#include "webvtt/webvtt_parser.h"

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

// A cue over caller-owned bytes, with ranges into them.
struct TestCue {
  std::string bytes;
  WebVTTCue cue;
  TestCue(std::string text, double start, double end, size_t idLen, size_t setOff, size_t setLen,
          size_t payOff, size_t payLen)
      : bytes(std::move(text)) {
    EXPECT_EQ(MxBlockBufferCreateWithMemoryBlock(nullptr, bytes.data(), bytes.size(),
                                                 MxAllocatorGetNull(), nullptr, 0, bytes.size(), 0,
                                                 &cue.text),
              kNoErr);
    cue.start = start;
    cue.end = end;
    cue.identifierLength = idLen;
    cue.settingsOffset = setOff;
    cue.settingsLength = setLen;
    cue.payloadOffset = payOff;
    cue.payloadLength = payLen;
  }
};

TEST(SegmentWriter, HeaderAndCueLayout) {
  ScratchDir dir;
  ChunkFile* chunk = ChunkFileCreate(TestVodSettings(dir.path().c_str()));
  ASSERT_NE(chunk, nullptr);
  ChunkFileSetFileExtension(chunk, ".webvtt");
  TestCue full("intro\n00:01.000 --> 00:04.000 align:start\nHello\n\n", 1, 4, 5, 30, 11, 42, 5);
  TestCue bare("00:05.000 --> 00:06.000\nA\r\nB\n\n", 5, 6, 0, 0, 0, 24, 4);
  EXPECT_EQ(WriteSegmentHeader(chunk, 0), kNoErr);
  EXPECT_EQ(WriteCue(chunk, &full.cue), kNoErr);
  EXPECT_EQ(WriteCue(chunk, &bare.cue), kNoErr);
  EXPECT_EQ(ChunkFileMoveToNextFileSecs(chunk, 10), kNoErr);
  // The timestamp map value is printed as given (the caller narrows it).
  EXPECT_EQ(WriteSegmentHeader(chunk, 18446744073709551615ull), kNoErr);
  EXPECT_EQ(ChunkFileReleaseSecs(chunk, 1, 11), kNoErr);
  EXPECT_EQ(ReadFile(dir / "fileSequence0.webvtt"),
            "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:0,LOCAL:00:00:00.000\n\n"
            "intro\n00:00:01.000 --> 00:00:04.000 align:start\nHello\n\n"
            "00:00:05.000 --> 00:00:06.000\nA\r\nB\n\n");
  EXPECT_EQ(ReadFile(dir / "fileSequence1.webvtt"),
            "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:18446744073709551615,LOCAL:00:00:00.000\n\n");
}

}  // namespace
