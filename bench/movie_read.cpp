// Opens a movie file through the reader registry, exactly as the tool does, and reads every
// sample of its first subtitle track. Reports the bytes this process read from files while
// doing so, the wall time (median of the runs), and checks the bytes against the bound: the
// movie header plus the subtitle samples plus 4 KiB per sample.
//
// Bytes read are counted by the kernel: the difference in `rchar` of /proc/self/io (every byte
// returned by read and pread, whatever the file stream's cache does with it), less the bytes of
// reading /proc/self/io itself. The header is the size of the top-level 'moov' box, found by a
// walk over the top-level box headers before counting starts.
// Usage: movie_read FILE [RUNS]   exit status 0 when within the bound, 1 when over it
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "media/core/file_byte_stream.h"
#include "media/core/sample_buffer.h"
#include "media/formats/reader_table.h"

namespace {

uint64_t ReadCharCount() {
  int fd = open("/proc/self/io", O_RDONLY);
  if (fd < 0) return 0;
  char text[512];
  ssize_t n = read(fd, text, sizeof text - 1);
  close(fd);
  if (n <= 0) return 0;
  text[n] = 0;
  const char* at = strstr(text, "rchar: ");
  return at ? strtoull(at + 7, nullptr, 10) : 0;
}

uint64_t BigEndian(const unsigned char* p, int n) {
  uint64_t v = 0;
  for (int i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

// The size of the top-level 'moov' box, or 0 when there is none.
uint64_t MovieBoxSize(const char* path) {
  int fd = open(path, O_RDONLY);
  if (fd < 0) return 0;
  const off_t length = lseek(fd, 0, SEEK_END);
  uint64_t at = 0, found = 0;
  unsigned char h[16];
  while (at + 8 <= uint64_t(length) && pread(fd, h, 16, off_t(at)) >= 8) {
    uint64_t size = BigEndian(h, 4);
    if (size == 1) size = BigEndian(h + 8, 8);
    if (size == 0) size = uint64_t(length) - at;
    if (size < 8) break;
    if (memcmp(h + 4, "moov", 4) == 0) {
      found = size;
      break;
    }
    at += size;
  }
  close(fd);
  return found;
}

struct Run {
  double seconds = 0;
  uint64_t bytesRead = 0, samples = 0, sampleBytes = 0;
};

// One run: open, find the first subtitle track, read all its samples.
bool ReadSubtitleTrack(const char* path, Run* run) {
  const uint64_t probe = ReadCharCount();
  const uint64_t before = ReadCharCount();
  const uint64_t probeCost = before - probe;  // the bytes of one read of /proc/self/io
  const auto start = std::chrono::steady_clock::now();
  MxURL url;
  MxByteStreamRef file;
  if (MxURLCreateWithFileSystemPath(path, false, &url) != kNoErr ||
      MxByteStreamCreateForFileURL(nullptr, url, 0, &file) != kNoErr) {
    fprintf(stderr, "cannot open %s\n", path);
    return false;
  }
  QorFormatReaderRef reader;
  if (Status err = QorFormatReaderCreateForStream(file.get(), nullptr, nullptr, &reader)) {
    fprintf(stderr, "no format reader for %s: %d\n", path, err);
    return false;
  }
  int64_t count = 0;
  if (QorFormatReaderGetTrackCount(reader.get(), &count) != kNoErr) return false;
  for (int64_t i = 0; i < count; ++i) {
    QorTrackReaderRef track;
    FourCC type = 0;
    if (QorFormatReaderCopyTrackByIndex(reader.get(), i, &track, &type, nullptr) != kNoErr)
      return false;
    if (type != MxFourCC("sbtl")) continue;
    QorSampleCursorServiceRef service;
    QorSampleCursorRef cursor;
    QorSampleGeneratorRef generator;
    if (QorTrackReaderCopySampleCursorService(track.get(), &service) != kNoErr ||
        QorSampleCursorServiceCreateCursorAtFirstSample(service.get(), &cursor) != kNoErr ||
        QorSampleGeneratorCreateForFormatReaderUsingByteStreams(
            nullptr, reader.get(), track.get(), nullptr, 0, 0, &generator) != kNoErr)
      return false;
    for (int64_t stepped = 1; stepped == 1;) {
      MxSampleBufferRef sample;
      if (Status err = QorSampleGeneratorCreateSampleBufferAtCursor(generator.get(), cursor.get(),
                                                                    &sample)) {
        fprintf(stderr, "sample %llu failed: %d\n", static_cast<unsigned long long>(run->samples),
                err);
        return false;
      }
      ++run->samples;
      run->sampleBytes += MxBlockBufferGetDataLength(MxSampleBufferGetDataBuffer(sample.get()));
      if (QorSampleCursorStep(cursor.get(), 1, &stepped) != kNoErr) return false;
    }
    run->seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run->bytesRead = ReadCharCount() - before - probeCost;
    return true;
  }
  fprintf(stderr, "%s has no subtitle track\n", path);
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    fprintf(stderr, "usage: %s FILE [RUNS]\n", argv[0]);
    return 2;
  }
  const int runs = argc == 3 ? std::max(1, atoi(argv[2])) : 5;
  const uint64_t header = MovieBoxSize(argv[1]);
  std::vector<Run> results(static_cast<size_t>(runs));
  for (Run& run : results) {
    if (!ReadSubtitleTrack(argv[1], &run)) return 2;
  }
  const Run& last = results.back();
  std::vector<double> times;
  for (const Run& run : results) times.push_back(run.seconds);
  std::sort(times.begin(), times.end());
  const uint64_t bound = header + last.sampleBytes + 4096 * last.samples;
  printf("header (moov) %llu bytes; subtitle track %llu samples, %llu bytes\n",
         static_cast<unsigned long long>(header), static_cast<unsigned long long>(last.samples),
         static_cast<unsigned long long>(last.sampleBytes));
  printf("read %llu bytes; bound %llu bytes: %s\n", static_cast<unsigned long long>(last.bytesRead),
         static_cast<unsigned long long>(bound), last.bytesRead <= bound ? "within" : "OVER");
  printf("open and read all samples: %.4f s (median of %d runs; first %.4f s)\n",
         times[times.size() / 2], runs, results.front().seconds);
  return last.bytesRead <= bound ? 0 : 1;
}
