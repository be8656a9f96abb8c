// Opening a movie through the reader's entry point and pulling samples through the cursor
// service, cursor and byte-stream generator, as the converter does.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "media/core/byte_stream.h"
#include "media/formatreader/format_reader.h"

struct ReadSample {
  int64_t ptsValue = 0;
  int32_t ptsTimescale = 0;
  int64_t durationValue = 0;
  int32_t durationTimescale = 0;
  std::string text;  // for text samples: the text after the 16-bit length; else the raw bytes
  std::string bytes;
  bool operator==(const ReadSample& o) const {
    // Times compare as rationals; the bytes only when both hold them.
    return ptsValue * o.ptsTimescale == o.ptsValue * ptsTimescale &&
           durationValue * o.durationTimescale == o.durationValue * durationTimescale &&
           text == o.text;
  }
};
void PrintTo(const ReadSample& s, std::ostream* os);

// A byte stream that forwards to another and records every read as (offset, length).
class RecordingByteStream final : public MxByteStream {
 public:
  explicit RecordingByteStream(MxByteStreamRef inner) : inner_(std::move(inner)) {}
  const char* ClassName() const override { return "RecordingByteStream"; }
  OSStatus Read(size_t size, int64_t offset, void* destination, size_t* bytesRead) override;
  OSStatus GetLength(int64_t offset, int64_t* length) override {
    return inner_->GetLength(offset, length);
  }
  std::vector<std::pair<uint64_t, uint64_t>> reads;
  uint64_t bytesRead = 0;

 private:
  MxByteStreamRef inner_;
};

struct OpenedMovie {
  MxRef<RecordingByteStream> recorder;
  QorFormatReaderRef reader;
  // Opens `file` (bytes in memory) through the movie reader's instantiator.
  OSStatus Open(const std::string& file, bool recordReads = false);
  // Opens the file at `path` through a file byte stream, recording reads.
  OSStatus OpenPath(const std::string& path);
};

OSStatus ReadSampleAtCursor(QorSampleGenerator* generator, QorSampleCursor* cursor,
                            ReadSample* out);
// Every sample of track `index`, in decode order.
OSStatus ReadAllSamples(QorFormatReader* reader, int64_t index, std::vector<ReadSample>* out);
