#include "media/formatreader/format_reader.h"

#include <gtest/gtest.h>

#include "media/core/memory_byte_stream.h"

namespace {

// A class that provides none of its base's operations.
template <class Base>
struct Bare final : Base {
  const char* ClassName() const override { return "Bare"; }
};

// A cursor over one sample at a fixed place in a stream.
struct OneSampleCursor final : QorSampleCursor {
  const char* ClassName() const override { return "OneSample"; }
  Status CopySampleLocation(QorSampleLocation* out) override {
    if (!located) return QorSampleCursor::CopySampleLocation(out);
    *out = {stream, offset, length};
    return kNoErr;
  }
  Status GetOutputTiming(MxTime* pts, MxTime* duration) override {
    *pts = MxTimeMake(1500, 1000);
    *duration = MxTimeMake(250, 1000);
    return kNoErr;
  }
  Status CopyFormatDescription(MxFormatDescriptionRef* out) override {
    *out = description;
    return kNoErr;
  }
  MxByteStreamRef stream;
  int64_t offset = 0, length = 0;
  bool located = true;
  MxFormatDescriptionRef description;
};

TEST(FormatReader, ByteStreamGeneratorLoadsTheSampleTheCursorLocates) {
  const uint8_t bytes[] = {'x', 'x', 0, 2, 'H', 'i', 'y'};
  auto cursor = MxRef<OneSampleCursor>::Adopt(new OneSampleCursor);
  ASSERT_EQ(MxByteStreamCreateForMemory(bytes, sizeof bytes, &cursor->stream), kNoErr);
  ASSERT_EQ(MxFormatDescriptionCreate(nullptr, MxFourCC("sbtl"), MxFourCC("tx3g"), nullptr,
                                      &cursor->description),
            kNoErr);
  QorFormatReaderRef readerRef = QorFormatReaderRef::Adopt(new Bare<QorFormatReader>);
  QorFormatReader* reader = readerRef.get();
  auto track = MxRef<Bare<QorTrackReader>>::Adopt(new Bare<QorTrackReader>);
  QorSampleGeneratorRef generator;
  ASSERT_EQ(QorSampleGeneratorCreateForFormatReaderUsingByteStreams(nullptr, reader, track.get(),
                                                                    nullptr, 0, 0, &generator),
            kNoErr);
  struct Case {
    int64_t offset, length;
    Status status;
    std::string data;
  } cases[] = {
      {2, 4, kNoErr, std::string("\0\2Hi", 4)},
      {7, 0, kNoErr, ""},
      {5, 4, kMxErrEndOfStream, ""},  // the stream cannot deliver it whole
      {-1, 2, kMxErrInvalidParameter, ""},
      {0, kQorSampleGeneratorMaxSampleLength + 1, kMxErrInvalidParameter, ""},
  };
  for (const Case& c : cases) {
    cursor->offset = c.offset;
    cursor->length = c.length;
    MxSampleBufferRef sample;
    EXPECT_EQ(QorSampleGeneratorCreateSampleBufferAtCursor(generator.get(), cursor.get(), &sample),
              c.status)
        << c.offset << "+" << c.length;
    if (c.status != kNoErr) continue;
    MxBlockBuffer* data = MxSampleBufferGetDataBuffer(sample.get());
    std::string got(MxBlockBufferGetDataLength(data), '\0');
    if (!got.empty()) {
      ASSERT_EQ(MxBlockBufferCopyDataBytes(data, 0, got.size(), got.data()), kNoErr);
    }
    EXPECT_EQ(got, c.data);
    EXPECT_EQ(MxSampleBufferGetFormatDescription(sample.get()), cursor->description.get());
    EXPECT_EQ(
        MxTimeCompare(MxSampleBufferGetOutputPresentationTimeStamp(sample.get()), MxTimeMake(3, 2)),
        0);
    EXPECT_EQ(MxTimeCompare(MxSampleBufferGetOutputDuration(sample.get()), MxTimeMake(1, 4)), 0);
  }
  // A cursor that cannot say where its sample is gives no sample, and that answer is passed on.
  cursor->located = false;
  MxSampleBufferRef sample;
  EXPECT_EQ(QorSampleGeneratorCreateSampleBufferAtCursor(generator.get(), cursor.get(), &sample),
            kMxErrUnimplemented);
}

}  // namespace
