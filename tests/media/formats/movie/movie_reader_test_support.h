// Opening a movie through the reader's entry point and pulling samples through the cursor
// service, cursor and byte-stream generator, as the converter does.
#pragma once

#include <cstdint>
#include <string>
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

struct OpenedMovie {
  QorFormatReaderRef reader;
  // Opens `file` (bytes in memory) through the movie reader's instantiator.
  Status Open(const std::string& file);
  // Opens the file at `path` through a file byte stream.
  Status OpenPath(const std::string& path);
};

// A cursor at the first sample of one track, and a generator of that track's samples.
struct TrackCursor {
  QorTrackReaderRef track;
  QorSampleCursorRef cursor;
  QorSampleGeneratorRef generator;
  Status Open(QorFormatReader* reader, int64_t index);
};

Status ReadSampleAtCursor(QorSampleGenerator* generator, QorSampleCursor* cursor, ReadSample* out);
// Every sample of track `index`, in decode order.
Status ReadAllSamples(QorFormatReader* reader, int64_t index, std::vector<ReadSample>* out);
