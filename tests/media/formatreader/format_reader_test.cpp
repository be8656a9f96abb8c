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
  OSStatus CopySampleLocation(QorSampleLocation* out) override {
    *out = {stream, offset, length};
    return kNoErr;
  }
  OSStatus GetOutputTiming(MxTime* pts, MxTime* duration) override {
    *pts = MxTimeMake(1500, 1000);
    *duration = MxTimeMake(250, 1000);
    return kNoErr;
  }
  OSStatus CopyFormatDescription(MxFormatDescriptionRef* out) override {
    *out = description;
    return kNoErr;
  }
  MxByteStreamRef stream;
  int64_t offset = 0, length = 0;
  MxFormatDescriptionRef description;
};

TEST(FormatReader, AbsentOperationsAnswerUnimplemented) {
  QorFormatReaderRef readerRef = QorFormatReaderRef::Adopt(new Bare<QorFormatReader>);
  QorFormatReader* reader = readerRef.get();
  auto track = MxRef<Bare<QorTrackReader>>::Adopt(new Bare<QorTrackReader>);
  auto service = MxRef<Bare<QorSampleCursorService>>::Adopt(new Bare<QorSampleCursorService>);
  auto cursor = MxRef<Bare<QorSampleCursor>>::Adopt(new Bare<QorSampleCursor>);
  auto generator = MxRef<Bare<QorSampleGenerator>>::Adopt(new Bare<QorSampleGenerator>);
  int64_t count = 0;
  QorTrackReaderRef trackOut;
  QorTrackID id = 0;
  QorSampleCursorServiceRef serviceOut;
  QorSampleCursorRef cursorOut;
  MxSampleBufferRef sample;
  EXPECT_EQ(QorFormatReaderGetTrackCount(reader, &count), kMxErrUnimplemented);
  EXPECT_EQ(QorFormatReaderCopyTrackByIndex(reader, 0, &trackOut, nullptr, nullptr),
            kMxErrUnimplemented);
  EXPECT_EQ(QorTrackReaderGetTrackInfo(track.get(), &id, nullptr), kMxErrUnimplemented);
  EXPECT_EQ(QorTrackReaderCopySampleCursorService(track.get(), &serviceOut), kMxErrUnimplemented);
  EXPECT_EQ(QorSampleCursorServiceCreateCursorAtFirstSample(service.get(), &cursorOut),
            kMxErrUnimplemented);
  EXPECT_EQ(QorSampleCursorStep(cursor.get(), 1, &count), kMxErrUnimplemented);
  EXPECT_EQ(QorSampleGeneratorCreateSampleBufferAtCursor(generator.get(), cursor.get(), &sample),
            kMxErrUnimplemented);
  MxValue value;
  EXPECT_EQ(reader->CopyProperty(kQorFormatReaderProperty_Duration, &value), kMxErrUnimplemented);
  // The byte-stream generator needs the cursor to say where its sample is.
  QorSampleGeneratorRef byteStreams;
  ASSERT_EQ(QorSampleGeneratorCreateForFormatReaderUsingByteStreams(nullptr, reader, track.get(),
                                                                    nullptr, 0, 0, &byteStreams),
            kNoErr);
  EXPECT_EQ(QorSampleGeneratorCreateSampleBufferAtCursor(byteStreams.get(), cursor.get(), &sample),
            kMxErrUnimplemented);
}

TEST(FormatReader, ByteStreamGeneratorLoadsTheSample) {
  const uint8_t bytes[] = {'x', 'x', 0, 2, 'H', 'i', 'y'};
  auto cursor = MxRef<OneSampleCursor>::Adopt(new OneSampleCursor);
  ASSERT_EQ(MxByteStreamCreateForMemory(bytes, sizeof bytes, &cursor->stream), kNoErr);
  ASSERT_EQ(MxFormatDescriptionCreate(nullptr, MxFourCharCode("sbtl"), MxFourCharCode("tx3g"),
                                      nullptr, &cursor->description),
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
    OSStatus status;
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
}

}  // namespace
