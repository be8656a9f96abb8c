#include "media/formats/movie/sample_table.h"

#include <algorithm>

#include "media/core/error_signal.h"

namespace {

OSStatus Malformed() {
  return QorSignalErrorAt(kMovieErrMalformed);
}

uint64_t SaturatingAdd(uint64_t a, uint64_t b) {
  return b > UINT64_MAX - a ? UINT64_MAX : a + b;
}

}  // namespace

OSStatus SampleTable::Make(const MovieTrack& track, SampleTable* out) {
  SampleTable t;
  const int present = int(track.stts.has_value()) + int(track.stsc.has_value()) +
                      int(track.sizes.has_value()) + int(track.chunkOffsets.has_value());
  if (present == 0) {
    *out = t;
    return kNoErr;
  }
  if (present != 4 || !track.stsd) return Malformed();
  t.stts_ = &*track.stts;
  t.ctts_ = track.ctts ? &*track.ctts : nullptr;
  t.stsc_ = &*track.stsc;
  t.sizes_ = &*track.sizes;
  t.chunks_ = &*track.chunkOffsets;
  t.sampleCount_ = t.sizes_->sampleCount;
  const uint32_t n = t.sampleCount_;

  // The sample count and the decode time of the last sample must fit, so that no step overflows.
  uint64_t timed = 0, totalTime = 0;
  for (uint32_t i = 0; i < t.stts_->runs.count; ++i) {
    timed += t.stts_->RunCount(i);
    totalTime = SaturatingAdd(totalTime, uint64_t(t.stts_->RunCount(i)) * t.stts_->RunDelta(i));
  }
  if (timed != n || totalTime > uint64_t(INT64_MAX)) return Malformed();
  if (t.ctts_) {
    uint64_t offsets = 0;
    for (uint32_t i = 0; i < t.ctts_->runs.count; ++i) offsets += t.ctts_->RunCount(i);
    if (offsets < n) return Malformed();
  }
  if (n == 0) {
    *out = t;
    return kNoErr;
  }

  // Every run of chunks starts after the previous one, holds samples, names an existing sample
  // description, and together the runs hold every sample within the chunks that exist.
  const uint32_t chunkCount = t.chunks_->offsets.count;
  const uint32_t runs = t.stsc_->runs.count;
  if (runs == 0 || t.stsc_->FirstChunk(0) != 1) return Malformed();
  const size_t descriptions = track.stsd->entries.size();
  uint64_t mapped = 0;
  for (uint32_t i = 0; i < runs && mapped < n; ++i) {
    const uint32_t first = t.stsc_->FirstChunk(i);
    const uint32_t perChunk = t.stsc_->SamplesPerChunk(i);
    const uint32_t description = t.stsc_->DescriptionIndex(i);
    if (first == 0 || first > chunkCount || perChunk == 0) return Malformed();
    if (description == 0 || description > descriptions) return Malformed();
    uint64_t end = uint64_t(chunkCount) + 1;
    if (i + 1 < runs) {
      const uint32_t next = t.stsc_->FirstChunk(i + 1);
      if (next <= first) return Malformed();
      end = std::min<uint64_t>(next, end);
    }
    mapped = SaturatingAdd(mapped, (end - first) * perChunk);
  }
  if (mapped < n) return Malformed();
  *out = t;
  return kNoErr;
}

SamplePosition SamplePosition::First(const SampleTable& table) {
  SamplePosition p;
  p.table_ = &table;
  if (table.SampleCount() == 0) return p;
  // The totals were checked against the sample count, so a run with samples follows.
  while (p.sttsRun_ < table.stts_->runs.count && table.stts_->RunCount(p.sttsRun_) == 0)
    ++p.sttsRun_;
  p.sttsLeft_ = table.stts_->RunCount(p.sttsRun_);
  if (table.ctts_) {
    while (p.cttsRun_ < table.ctts_->runs.count && table.ctts_->RunCount(p.cttsRun_) == 0)
      ++p.cttsRun_;
    p.cttsLeft_ = table.ctts_->RunCount(p.cttsRun_);
  }
  p.chunkLeft_ = table.stsc_->SamplesPerChunk(0);
  p.offset_ = table.chunks_->OffsetAt(0);
  return p;
}

OSStatus SamplePosition::Current(SampleInfo* out) const {
  if (Empty()) return kMxErrEndOfTrack;
  const SampleTable& t = *table_;
  SampleInfo info;
  info.decodeTime = int64_t(decodeTime_);
  info.duration = t.stts_->RunDelta(sttsRun_);
  const int64_t offset = t.ctts_ ? t.ctts_->RunOffset(cttsRun_) : 0;
  if (__builtin_add_overflow(info.decodeTime, offset, &info.presentationTime)) return Malformed();
  info.size = t.sizes_->SizeAt(sample_);
  info.fileOffset = offset_;
  info.descriptionIndex = t.stsc_->DescriptionIndex(stscRun_);
  *out = info;
  return kNoErr;
}

// Byte offsets wrap rather than saturate, so that a step back undoes a step forward exactly; a
// wrapped offset is refused when the sample is read, as it lies outside the file.
bool SamplePosition::StepForward() {
  if (Empty() || sample_ + 1 >= table_->SampleCount()) return false;
  const SampleTable& t = *table_;
  offset_ += t.sizes_->SizeAt(sample_);
  ++sample_;

  decodeTime_ += t.stts_->RunDelta(sttsRun_);
  if (--sttsLeft_ == 0) {
    do ++sttsRun_;
    while (sttsRun_ < t.stts_->runs.count && t.stts_->RunCount(sttsRun_) == 0);
    sttsLeft_ = t.stts_->RunCount(sttsRun_);
  }
  if (t.ctts_ && --cttsLeft_ == 0) {
    do ++cttsRun_;
    while (cttsRun_ < t.ctts_->runs.count && t.ctts_->RunCount(cttsRun_) == 0);
    cttsLeft_ = t.ctts_->RunCount(cttsRun_);
  }
  if (--chunkLeft_ == 0) {
    ++chunk_;
    if (stscRun_ + 1 < t.stsc_->runs.count && chunk_ + 1 >= t.stsc_->FirstChunk(stscRun_ + 1))
      ++stscRun_;
    chunkLeft_ = t.stsc_->SamplesPerChunk(stscRun_);
    offset_ = t.chunks_->OffsetAt(chunk_);
  }
  return true;
}

bool SamplePosition::StepBackward() {
  if (Empty() || sample_ == 0) return false;
  const SampleTable& t = *table_;
  --sample_;

  if (sttsLeft_ == t.stts_->RunCount(sttsRun_)) {
    do --sttsRun_;
    while (sttsRun_ > 0 && t.stts_->RunCount(sttsRun_) == 0);
    sttsLeft_ = 1;
  } else {
    ++sttsLeft_;
  }
  decodeTime_ -= t.stts_->RunDelta(sttsRun_);
  if (t.ctts_) {
    if (cttsLeft_ == t.ctts_->RunCount(cttsRun_)) {
      do --cttsRun_;
      while (cttsRun_ > 0 && t.ctts_->RunCount(cttsRun_) == 0);
      cttsLeft_ = 1;
    } else {
      ++cttsLeft_;
    }
  }
  const uint32_t perChunk = t.stsc_->SamplesPerChunk(stscRun_);
  if (chunkLeft_ == perChunk) {
    // Onto the last sample of the previous chunk: its offset is the chunk's plus the sizes of
    // the samples before it in that chunk.
    --chunk_;
    if (stscRun_ > 0 && chunk_ + 1 < t.stsc_->FirstChunk(stscRun_)) --stscRun_;
    const uint32_t previousPerChunk = t.stsc_->SamplesPerChunk(stscRun_);
    offset_ = t.chunks_->OffsetAt(chunk_);
    for (uint32_t i = sample_ + 1 - previousPerChunk; i < sample_; ++i)
      offset_ += t.sizes_->SizeAt(i);
    chunkLeft_ = 1;
  } else {
    ++chunkLeft_;
    offset_ -= t.sizes_->SizeAt(sample_);
  }
  return true;
}
