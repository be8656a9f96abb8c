// The movie-file reader over an in-memory byte stream: open the file, read every property of
// every track, and pull every sample of every track (up to a bound) through the generator.
#include <cstddef>
#include <cstdint>

#include "media/core/memory_byte_stream.h"
#include "media/formats/reader_table.h"

namespace {

const char* const kTrackKeys[] = {
    kQorTrackProperty_LanguageCode,
    kQorTrackProperty_ExtendedLanguageTagString,
    kQorTrackProperty_TrackName,
    kQorTrackProperty_Enabled,
    kQorTrackProperty_ExcludeFromAutoSelection,
    kQorTrackProperty_FormatDescriptionArray,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MxByteStreamRef stream;
  if (MxByteStreamCreateForMemory(data, size, &stream) != kNoErr) return 0;
  QorFormatReaderRef reader;
  if (CinemoxMovieFormatReaderCreateFromStream(stream.get(), nullptr, nullptr, &reader) != kNoErr)
    return 0;
  MxValue value;
  (void)reader->CopyProperty(kQorFormatReaderProperty_Duration, &value);
  (void)reader->CopyProperty(kQorFormatReaderProperty_TrackReferenceDictionary, &value);
  int64_t count = 0;
  if (QorFormatReaderGetTrackCount(reader.get(), &count) != kNoErr) return 0;
  for (int64_t i = 0; i < count; ++i) {
    QorTrackReaderRef track;
    if (QorFormatReaderCopyTrackByIndex(reader.get(), i, &track, nullptr, nullptr) != kNoErr)
      continue;
    for (const char* key : kTrackKeys) (void)track->CopyProperty(key, &value);
    QorSampleCursorServiceRef service;
    QorSampleCursorRef cursor;
    QorSampleGeneratorRef generator;
    if (QorTrackReaderCopySampleCursorService(track.get(), &service) != kNoErr ||
        QorSampleCursorServiceCreateCursorAtFirstSample(service.get(), &cursor) != kNoErr ||
        QorSampleGeneratorCreateForFormatReaderUsingByteStreams(
            nullptr, reader.get(), track.get(), nullptr, 0, 0, &generator) != kNoErr)
      continue;
    for (int n = 0; n < 4096; ++n) {
      MxSampleBufferRef sample;
      (void)QorSampleGeneratorCreateSampleBufferAtCursor(generator.get(), cursor.get(), &sample);
      int64_t stepped = 0;
      if (QorSampleCursorStep(cursor.get(), 1, &stepped) != kNoErr || stepped != 1) break;
    }
    int64_t stepped = 0;
    (void)QorSampleCursorStep(cursor.get(), -5000, &stepped);
  }
  return 0;
}
