// A track's sample tables walked as run-length tables. SampleTable checks once, when a track is
// opened, that the tables agree with each other; SamplePosition then steps through the samples
// in decode order with one run-length cursor per table (sample deltas, composition offsets,
// chunks) and a few counters: nothing is expanded per sample. A step forward
// takes constant time (amortised over runs of zero samples); a step back takes constant time
// too, except onto the last sample of the previous chunk, which sums that chunk's sizes.
#pragma once

#include <cstdint>

#include "common/status.h"
#include "media/formats/movie/movie_header.h"
#include "media/formats/movie/run_length_cursor.h"

struct SampleInfo {
  int64_t decodeTime = 0;        // media timescale
  int64_t presentationTime = 0;  // decode time plus composition offset
  uint32_t duration = 0;         // media timescale
  uint32_t size = 0;
  uint64_t fileOffset = 0;
  uint32_t descriptionIndex = 0;  // 1-based index into the sample descriptions
};

class SampleTable {
 public:
  // Checks the tables of `track` (which must outlive the table). A track with no sample tables at
  // all has no samples; one with only some of them, or with tables that disagree, is malformed.
  static Status Make(const MovieTrack& track, SampleTable* out);

  uint32_t SampleCount() const { return sampleCount_; }

 private:
  friend class SamplePosition;
  const TimeToSampleBox* stts_ = nullptr;
  const CompositionOffsetBox* ctts_ = nullptr;
  const SampleToChunkBox* stsc_ = nullptr;
  const SampleSizeBox* sizes_ = nullptr;
  const ChunkOffsetBox* chunks_ = nullptr;
  uint32_t sampleCount_ = 0;
};

class SamplePosition {
 public:
  // The position of the first sample of `table`; a table without samples has no position
  // (Empty() is true).
  static SamplePosition First(const SampleTable& table);

  bool Empty() const { return table_ == nullptr || table_->SampleCount() == 0; }
  // The current sample; kMxErrEndOfTrack when the table has no samples.
  Status Current(SampleInfo* out) const;
  // Moves to the next or previous sample in decode order; false at the last or first sample,
  // where the position stays.
  bool StepForward();
  bool StepBackward();

 private:
  const SampleTable* table_ = nullptr;
  uint32_t sample_ = 0;
  RunLengthCursor deltas_;   // 'stts', by sample
  RunLengthCursor offsets_;  // 'ctts', by sample; unused without composition offsets
  RunLengthCursor chunks_;   // 'stsc', by chunk
  uint32_t chunkLeft_ = 0;   // samples of the chunk from the current one on
  uint64_t decodeTime_ = 0;
  uint64_t offset_ = 0;
};
