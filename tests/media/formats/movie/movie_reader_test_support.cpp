#include "media/formats/movie/movie_reader_test_support.h"

#include <ostream>

#include "media/core/file_byte_stream.h"
#include "media/core/memory_byte_stream.h"
#include "media/core/sample_buffer.h"
#include "media/formats/reader_table.h"

void PrintTo(const ReadSample& s, std::ostream* os) {
  *os << "{" << s.ptsValue << "/" << s.ptsTimescale << " +" << s.durationValue << "/"
      << s.durationTimescale << " \"" << s.text << "\"}";
}

Status OpenedMovie::Open(const std::string& file) {
  MxByteStreamRef memory;
  Status err = MxByteStreamCreateForMemory(reinterpret_cast<const uint8_t*>(file.data()),
                                           file.size(), &memory);
  if (err) return err;
  return CinemoxMovieFormatReaderCreateFromStream(memory.get(), nullptr, nullptr, &reader);
}

Status OpenedMovie::OpenPath(const std::string& path) {
  MxURL url;
  Status err = MxURLCreateWithFileSystemPath(path.c_str(), false, &url);
  if (err) return err;
  MxByteStreamRef file;
  err = MxByteStreamCreateForFileURL(nullptr, url, 0, &file);
  if (err) return err;
  return CinemoxMovieFormatReaderCreateFromStream(file.get(), nullptr, nullptr, &reader);
}

Status ReadSampleAtCursor(QorSampleGenerator* generator, QorSampleCursor* cursor, ReadSample* out) {
  MxSampleBufferRef sample;
  Status err = QorSampleGeneratorCreateSampleBufferAtCursor(generator, cursor, &sample);
  if (err) return err;
  const MxTime pts = MxSampleBufferGetOutputPresentationTimeStamp(sample.get());
  const MxTime duration = MxSampleBufferGetOutputDuration(sample.get());
  *out = ReadSample{pts.value, pts.timescale, duration.value, duration.timescale, "", ""};
  MxBlockBuffer* data = MxSampleBufferGetDataBuffer(sample.get());
  const size_t length = MxBlockBufferGetDataLength(data);
  out->bytes.resize(length);
  if (length > 0) {
    err = MxBlockBufferCopyDataBytes(data, 0, length, out->bytes.data());
    if (err) return err;
  }
  const FourCC type = MxSampleBufferGetFormatDescription(sample.get())->mediaType();
  const bool text = type != MxFourCC("vide") && type != MxFourCC("soun");
  out->text = text && length >= 2
                  ? out->bytes.substr(2, static_cast<size_t>((uint8_t(out->bytes[0]) << 8) |
                                                             uint8_t(out->bytes[1])))
                  : out->bytes;
  return kNoErr;
}

Status TrackCursor::Open(QorFormatReader* reader, int64_t index) {
  QorSampleCursorServiceRef service;
  Status err = QorFormatReaderCopyTrackByIndex(reader, index, &track, nullptr, nullptr);
  if (!err) err = QorTrackReaderCopySampleCursorService(track.get(), &service);
  if (!err) err = QorSampleCursorServiceCreateCursorAtFirstSample(service.get(), &cursor);
  if (err) return err;
  return QorSampleGeneratorCreateForFormatReaderUsingByteStreams(nullptr, reader, track.get(),
                                                                 nullptr, 0, 0, &generator);
}

Status ReadAllSamples(QorFormatReader* reader, int64_t index, std::vector<ReadSample>* out) {
  TrackCursor at;
  if (Status err = at.Open(reader, index)) return err;
  out->clear();
  for (;;) {
    ReadSample s;
    if (Status err = ReadSampleAtCursor(at.generator.get(), at.cursor.get(), &s)) return err;
    out->push_back(std::move(s));
    int64_t stepped = 0;
    if (Status err = QorSampleCursorStep(at.cursor.get(), 1, &stepped)) return err;
    if (stepped != 1) return kNoErr;
  }
}
