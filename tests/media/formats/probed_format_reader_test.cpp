// The registry's readers for probed containers, reached through reader selection: track count,
// media types and IDs, the duration properties, the MPEG reader's fallback for data that is not
// MPEG, and the codes of damaged or foreign files.
#include <gtest/gtest.h>

#include "media/core/file_byte_stream.h"
#include "media/formats/reader_table.h"
#include "test_support.h"

namespace {

struct ReaderCase {
  const char* name;
  const char* ffmpeg;  // ffmpeg arguments making the file, or null for `bytes`
  const char* bytes;
  Status status;
  std::vector<FourCC> mediaTypes;
  bool accurate;
  double seconds;
};

const FourCC kVide = MxFourCC("vide");
const FourCC kSoun = MxFourCC("soun");

const ReaderCase kReaderCases[] = {
    {"clip.ts",
     "-f lavfi -i testsrc=size=64x48:rate=25:duration=2 -f lavfi -i sine=duration=2 "
     "-c:v mpeg2video -c:a mp2 -f mpegts",
     nullptr,
     kNoErr,
     {kVide, kSoun},
     false,
     2.0},
    // ADTS named .ts: the MPEG reader refuses it and hands it to the audio-stream reader.
    {"audio.ts",
     "-f lavfi -i sine=duration=2 -c:a aac -f adts",
     nullptr,
     kNoErr,
     {kSoun},
     true,
     2.02},
    {"song.wav", "-f lavfi -i sine=duration=2", nullptr, kNoErr, {kSoun}, true, 2.0},
    {"clip.avi",
     "-f lavfi -i testsrc=size=64x48:rate=25:duration=2 -c:v mpeg4",
     nullptr,
     kNoErr,
     {kVide},
     true,
     2.0},
    {"song.mp3",
     "-f lavfi -i sine=duration=2 -c:a libmp3lame",
     nullptr,
     kNoErr,
     {kSoun},
     true,
     2.04},
    {"junk.dv", nullptr, "no frames here, only words", kMxErrFormatNotRecognised, {}, false, 0},
    {"junk.ts", nullptr, "neither packets nor packs", kMxErrFormatNotRecognised, {}, false, 0},
    {"cut.wav", nullptr, "RIFF\x24\x01\x01\x01WAVEfmt ", kMxErrFormatDamaged, {}, false, 0},
    {"empty.aiff", nullptr, "", kMxErrFormatNotRecognised, {}, false, 0},
};

double Seconds(const MxValue& value) {
  return MxTimeGetSeconds(MxTimeMakeFromDictionary(value.GetDictionary()));
}

TEST(ProbedFormatReader, SelectedReadersListTracksAndDurations) {
  if (RunShell("command -v ffmpeg >/dev/null") != 0) GTEST_SKIP() << "ffmpeg missing";
  ScratchDir dir;
  for (const ReaderCase& c : kReaderCases) {
    SCOPED_TRACE(c.name);
    const std::string path = dir / c.name;
    if (c.ffmpeg) {
      std::string log;
      ASSERT_EQ(
          RunShell("ffmpeg -nostdin -v error " + std::string(c.ffmpeg) + " '" + path + "' 2>&1",
                   &log),
          0)
          << log;
    } else {
      WriteFile(path, c.bytes);
    }
    MxURL url;
    ASSERT_EQ(MxURLCreateWithFileSystemPath(path.c_str(), false, &url), kNoErr);
    MxByteStreamRef stream;
    ASSERT_EQ(MxByteStreamCreateForFileURL(nullptr, url, 0, &stream), kNoErr);
    QorFormatReaderRef reader;
    ASSERT_EQ(QorFormatReaderCreateForStream(stream.get(), nullptr, nullptr, &reader), c.status);
    if (c.status != kNoErr) continue;

    int64_t count = 0;
    ASSERT_EQ(QorFormatReaderGetTrackCount(reader.get(), &count), kNoErr);
    std::vector<FourCC> types;
    for (int64_t i = 0; i < count; i++) {
      QorTrackReaderRef track;
      FourCC type = 0;
      QorTrackID id = 0, infoId = 0;
      ASSERT_EQ(QorFormatReaderCopyTrackByIndex(reader.get(), i, &track, &type, &id), kNoErr);
      ASSERT_EQ(QorTrackReaderGetTrackInfo(track.get(), &infoId, nullptr), kNoErr);
      EXPECT_EQ(infoId, id);
      EXPECT_GT(id, 0);
      types.push_back(type);
      QorSampleCursorServiceRef service;
      EXPECT_EQ(QorTrackReaderCopySampleCursorService(track.get(), &service), kMxErrUnimplemented);
    }
    EXPECT_EQ(types, c.mediaTypes);
    QorTrackReaderRef none;
    EXPECT_EQ(QorFormatReaderCopyTrackByIndex(reader.get(), count, &none, nullptr, nullptr),
              kMxErrInvalidParameter);

    MxValue accurate, duration, estimate;
    ASSERT_EQ(reader->CopyProperty(kQorFormatReaderProperty_AccurateDurationIsKnown, &accurate),
              kNoErr);
    EXPECT_EQ(accurate.GetBool(), c.accurate);
    ASSERT_EQ(reader->CopyProperty(kQorFormatReaderProperty_EstimatedDuration, &estimate), kNoErr);
    EXPECT_NEAR(Seconds(estimate), c.seconds, 0.05);
    const Status exact = reader->CopyProperty(kQorFormatReaderProperty_Duration, &duration);
    if (c.accurate) {
      ASSERT_EQ(exact, kNoErr);
      EXPECT_EQ(Seconds(duration), Seconds(estimate));
    } else {
      EXPECT_EQ(exact, kMxErrPropertyNotAvailable);
    }
  }
}

}  // namespace
