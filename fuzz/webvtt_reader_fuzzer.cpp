// The WebVTT format reader over an in-memory byte stream: make the reader, read its properties,
// pull every sample through the generator, and step the cursor past both ends.
#include <cstddef>
#include <cstdint>

#include "media/core/memory_byte_stream.h"
#include "media/formats/reader_table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MxByteStreamRef stream;
  if (MxByteStreamCreateForMemory(data, size, &stream) != kNoErr) return 0;
  QorFormatReaderRef reader;
  if (WebVTTFormatReaderCreateFromStream(stream.get(), nullptr, nullptr, &reader) != kNoErr)
    return 0;
  MxValue value;
  (void)reader->CopyProperty(kQorFormatReaderProperty_Duration, &value);
  QorTrackReaderRef track;
  if (QorFormatReaderCopyTrackByIndex(reader.get(), 0, &track, nullptr, nullptr) != kNoErr)
    return 0;
  (void)track->CopyProperty(kQorTrackProperty_FormatDescriptionArray, &value);
  QorSampleCursorServiceRef service;
  QorSampleCursorRef cursor;
  QorSampleGeneratorRef generator;
  if (QorTrackReaderCopySampleCursorService(track.get(), &service) != kNoErr ||
      QorSampleCursorServiceCreateCursorAtFirstSample(service.get(), &cursor) != kNoErr ||
      QorSampleGeneratorCreateForFormatReaderUsingByteStreams(nullptr, reader.get(), track.get(),
                                                              nullptr, 0, 0, &generator) != kNoErr)
    return 0;
  int64_t stepped = 1;
  while (stepped == 1) {
    MxSampleBufferRef sample;
    if (QorSampleGeneratorCreateSampleBufferAtCursor(generator.get(), cursor.get(), &sample) !=
        kNoErr)
      __builtin_trap();  // every sample of a reader that was made can be loaded
    if (QorSampleCursorStep(cursor.get(), 1, &stepped) != kNoErr) __builtin_trap();
  }
  (void)QorSampleCursorStep(cursor.get(), INT64_MIN, &stepped);
  return 0;
}
