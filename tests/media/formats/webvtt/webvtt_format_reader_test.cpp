// The WebVTT reader, reached through reader selection: its one 'text' track, each cue as a sample
// (payload bytes, start, duration), the cursor's ends, the duration properties, and the codes of
// streams it refuses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "media/core/file_byte_stream.h"
#include "media/formats/reader_table.h"
#include "test_support.h"

namespace {

struct Sample {
  int64_t start, duration;  // milliseconds
  std::string payload;
  bool operator==(const Sample&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Sample& s) {
  return os << "{" << s.start << ", " << s.duration << ", \"" << s.payload << "\"}";
}

int64_t Milliseconds(MxTime t) {
  return MxTimeConvertScale(t, 1000, kMxTimeRoundingMethod_RoundHalfAwayFromZero).value;
}

// Checks the reader's single track and duration properties, and walks every sample to the end
// and back to the start.
std::vector<Sample> ReadCues(QorFormatReader* reader, int64_t durationMs) {
  std::vector<Sample> samples;
  int64_t count = 0;
  EXPECT_EQ(QorFormatReaderGetTrackCount(reader, &count), kNoErr);
  EXPECT_EQ(count, 1);
  QorTrackReaderRef track;
  FourCC type = 0;
  QorTrackID id = 0;
  EXPECT_EQ(QorFormatReaderCopyTrackByIndex(reader, 0, &track, &type, &id), kNoErr);
  EXPECT_EQ(type, MxFourCC("text"));
  EXPECT_EQ(id, 1);
  QorTrackReaderRef none;
  EXPECT_EQ(QorFormatReaderCopyTrackByIndex(reader, 1, &none, nullptr, nullptr),
            kMxErrInvalidParameter);

  MxValue accurate, duration;
  EXPECT_EQ(reader->CopyProperty(kQorFormatReaderProperty_AccurateDurationIsKnown, &accurate),
            kNoErr);
  EXPECT_EQ(accurate.GetBool(), true);
  EXPECT_EQ(reader->CopyProperty(kQorFormatReaderProperty_Duration, &duration), kNoErr);
  EXPECT_EQ(Milliseconds(MxTimeMakeFromDictionary(duration.GetDictionary())), durationMs);

  QorSampleCursorServiceRef service;
  QorSampleCursorRef cursor;
  QorSampleGeneratorRef generator;
  EXPECT_EQ(QorTrackReaderCopySampleCursorService(track.get(), &service), kNoErr);
  const Status first = QorSampleCursorServiceCreateCursorAtFirstSample(service.get(), &cursor);
  if (first == kMxErrEndOfTrack) return samples;
  EXPECT_EQ(first, kNoErr);
  EXPECT_EQ(QorSampleGeneratorCreateForFormatReaderUsingByteStreams(nullptr, reader, track.get(),
                                                                    nullptr, 0, 0, &generator),
            kNoErr);
  int64_t stepped = 1;
  while (stepped == 1) {
    MxSampleBufferRef buffer;
    EXPECT_EQ(QorSampleGeneratorCreateSampleBufferAtCursor(generator.get(), cursor.get(), &buffer),
              kNoErr);
    if (!buffer) return samples;
    const MxFormatDescription* description = MxSampleBufferGetFormatDescription(buffer.get());
    EXPECT_EQ(description->mediaType(), MxFourCC("text"));
    EXPECT_EQ(MxFormatDescriptionGetMediaSubType(description), MxFourCC("wvtt"));
    MxBlockBuffer* data = MxSampleBufferGetDataBuffer(buffer.get());
    std::string payload(MxBlockBufferGetDataLength(data), '\0');
    EXPECT_EQ(MxBlockBufferCopyDataBytes(data, 0, payload.size(), payload.data()), kNoErr);
    samples.push_back({Milliseconds(MxSampleBufferGetOutputPresentationTimeStamp(buffer.get())),
                       Milliseconds(MxSampleBufferGetOutputDuration(buffer.get())), payload});
    EXPECT_EQ(QorSampleCursorStep(cursor.get(), 1, &stepped), kNoErr);
  }
  EXPECT_EQ(stepped, 0);  // at the last sample: a step forward moves nowhere
  EXPECT_EQ(QorSampleCursorStep(cursor.get(), -1000000, &stepped), kNoErr);
  EXPECT_EQ(stepped, 1 - int64_t(samples.size()));
  return samples;
}

// Opens the file at `path` through reader selection.
Status Open(const std::string& path, QorFormatReaderRef* reader) {
  MxURL url;
  MxByteStreamRef stream;
  Status err = MxURLCreateWithFileSystemPath(path.c_str(), false, &url);
  if (!err) err = MxByteStreamCreateForFileURL(nullptr, url, 0, &stream);
  return err ? err : QorFormatReaderCreateForStream(stream.get(), nullptr, nullptr, reader);
}

TEST(WebVTTFormatReader, CuesBecomeSamples) {
  ScratchDir dir;
  auto expect = [&](const char* name, const std::string& text, Status status,
                    std::vector<Sample> samples, int64_t durationMs) {
    SCOPED_TRACE(name);
    WriteFile(dir / "subs.vtt", text);
    QorFormatReaderRef reader;
    ASSERT_EQ(Open(dir / "subs.vtt", &reader), status);
    if (status == kNoErr) {
      EXPECT_EQ(ReadCues(reader.get(), durationMs), samples);
    }
  };
  expect("identifier, settings, CR LF lines, byte-order mark",
         "\xEF\xBB\xBFWEBVTT\r\nKind: captions\r\n\r\nintro\r\n00:01.000 --> 00:02.500 "
         "align:start\r\n"
         "Hello\r\n  world\r\n\r\n01:00:00.000 --> 01:00:00.001\r\n<i>x</i> & y\r\n\r\n",
         kNoErr, {{1000, 1500, "Hello\r\n  world"}, {3600000, 1, "<i>x</i> & y"}}, 3600001);
  expect("a cue ending before its start, an earlier cue outlasting the last",
         "WEBVTT\n\n00:00.000 --> 00:09.000\nlong\n\n00:05.000 --> 00:04.000\nbackwards\n\n"
         "00:06.000 --> 00:07.000\nlast",
         kNoErr, {{0, 9000, "long"}, {5000, -1000, "backwards"}, {6000, 1000, "last"}}, 9000);
  expect("a time beyond any media time drops its cue",
         "WEBVTT\n\n00:01.000 --> 00:02.000\nkept\n\n" + std::string(400, '9') +
             ":00:00.000 --> 1:00:00.000\nhuge\n\n",
         kNoErr, {{1000, 1000, "kept"}}, 2000);
  expect("signature only", "WEBVTT\n", kNoErr, {}, 0);
  expect("SRT under a .vtt name", "1\n00:00:01,000 --> 00:00:02,500\nHello\n\n",
         kMxErrFormatNotRecognised, {}, 0);
  expect("empty", "", kMxErrFormatNotRecognised, {}, 0);
  expect("a cue ending at 0 ends the read", "WEBVTT\n\n00:00.000 --> 00:00.000\nx\n\n",
         kWebVTTErrBadCueTime, {}, 0);
}

TEST(WebVTTFormatReader, CorpusFile) {
  SKIP_WITHOUT_CORPUS();
  QorFormatReaderRef reader;
  ASSERT_EQ(Open(std::string(kCorpusDir) + "/webvtt-py/sample.vtt", &reader), kNoErr);
  const std::vector<Sample> samples = ReadCues(reader.get(), 64300);
  ASSERT_EQ(samples.size(), 16u);
  EXPECT_EQ(samples.front(), (Sample{500, 6500, "Caption text #1"}));
  EXPECT_EQ(samples.back(), (Sample{61350, 2950, "Caption text #16"}));
}

}  // namespace
