// Opens a movie file through the movie reader and reads every sample of its first subtitle
// track, counting the bytes that went through the byte stream. Prints the header size (the
// movie box), the subtitle sample count and bytes, the bytes read and the wall time.
// Usage: movie_read FILE
#include <chrono>
#include <cstdio>

#include "media/core/file_byte_stream.h"
#include "media/core/sample_buffer.h"
#include "media/formatreader/format_reader_instantiators.h"

namespace {

class CountingByteStream final : public MxByteStream {
 public:
  explicit CountingByteStream(MxByteStreamRef inner) : inner_(std::move(inner)) {}
  const char* ClassName() const override { return "CountingByteStream"; }
  OSStatus Read(size_t size, int64_t offset, void* destination, size_t* count) override {
    size_t got = 0;
    OSStatus err = inner_->Read(size, offset, destination, &got);
    // The file stream fills its 4 KiB cache on small reads: count what it read from the file.
    bytes += size <= 4096 && err == kNoErr ? 4096 : got;
    ++reads;
    if (count) *count = got;
    return err;
  }
  OSStatus GetLength(int64_t offset, int64_t* length) override {
    return inner_->GetLength(offset, length);
  }
  uint64_t bytes = 0, reads = 0;

 private:
  MxByteStreamRef inner_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s FILE\n", argv[0]);
    return 2;
  }
  const auto start = std::chrono::steady_clock::now();
  MxURL url;
  MxByteStreamRef file;
  if (MxURLCreateWithFileSystemPath(argv[1], false, &url) != kNoErr ||
      MxByteStreamCreateForFileURL(nullptr, url, 0, &file) != kNoErr) {
    fprintf(stderr, "cannot open %s\n", argv[1]);
    return 1;
  }
  auto counting = MxRef<CountingByteStream>::Adopt(new CountingByteStream(file));
  QorFormatReaderRef reader;
  OSStatus err = CinemoxMovieFormatReaderCreateFromStream(counting.get(), nullptr, nullptr, &reader);
  if (err) {
    fprintf(stderr, "open failed: %d\n", err);
    return 1;
  }
  const uint64_t openBytes = counting->bytes;
  const double openSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  int64_t count = 0;
  if (QorFormatReaderGetTrackCount(reader.get(), &count) != kNoErr) return 1;
  for (int64_t i = 0; i < count; ++i) {
    QorTrackReaderRef track;
    FourCharCode type = 0;
    if (QorFormatReaderCopyTrackByIndex(reader.get(), i, &track, &type, nullptr) != kNoErr)
      return 1;
    if (type != MxFourCharCode("sbtl") && type != MxFourCharCode("text")) continue;
    QorSampleCursorServiceRef service;
    QorSampleCursorRef cursor;
    QorSampleGeneratorRef generator;
    if (QorTrackReaderCopySampleCursorService(track.get(), &service) != kNoErr ||
        QorSampleCursorServiceCreateCursorAtFirstSample(service.get(), &cursor) != kNoErr ||
        QorSampleGeneratorCreateForFormatReaderUsingByteStreams(nullptr, reader.get(), track.get(),
                                                                nullptr, 0, 0, &generator) != kNoErr)
      return 1;
    uint64_t samples = 0, sampleBytes = 0;
    for (;;) {
      MxSampleBufferRef sample;
      if ((err = QorSampleGeneratorCreateSampleBufferAtCursor(generator.get(), cursor.get(),
                                                              &sample))) {
        fprintf(stderr, "sample %llu failed: %d\n", (unsigned long long)samples, err);
        return 1;
      }
      ++samples;
      sampleBytes += MxBlockBufferGetDataLength(MxSampleBufferGetDataBuffer(sample.get()));
      int64_t stepped = 0;
      if (QorSampleCursorStep(cursor.get(), 1, &stepped) != kNoErr || stepped != 1) break;
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    printf("open: %llu bytes read, %.4f s\n", (unsigned long long)openBytes, openSeconds);
    printf("subtitle track %lld: %llu samples, %llu sample bytes\n", (long long)i,
           (unsigned long long)samples, (unsigned long long)sampleBytes);
    printf("total: %llu bytes read in %llu reads, %.4f s\n", (unsigned long long)counting->bytes,
           (unsigned long long)counting->reads, seconds);
    printf("bound (open + sample bytes + 4 KiB per sample): %llu\n",
           (unsigned long long)(openBytes + sampleBytes + 4096 * samples));
    return 0;
  }
  fprintf(stderr, "no subtitle track\n");
  return 1;
}
