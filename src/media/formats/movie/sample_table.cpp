#include "media/formats/movie/sample_table.h"

#include <algorithm>

#include "media/core/error_signal.h"

namespace {

Status Malformed(QorErrorReason reason, std::initializer_list<uint64_t> numbers = {}) {
  return QorSignalErrorBecause(kMovieErrMalformed, reason, numbers);
}

uint64_t SaturatingAdd(uint64_t a, uint64_t b) {
  return b > UINT64_MAX - a ? UINT64_MAX : a + b;
}

}  // namespace

Status SampleTable::Make(const MovieTrack& track, SampleTable* out) {
  SampleTable t;
  const int present = int(track.stts.has_value()) + int(track.stsc.has_value()) +
                      int(track.sizes.has_value()) + int(track.chunkOffsets.has_value());
  if (present == 0) {
    *out = t;
    return kNoErr;
  }
  if (present != 4 || !track.stsd) {
    return Malformed(
        "the sample table lacks one of 'stsd', 'stts', 'stsc', 'stsz' or 'stz2', 'stco' or "
        "'co64'");
  }
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
  if (timed != n) return Malformed("'stts' times # samples of #", {timed, uint64_t(n)});
  if (totalTime > uint64_t(INT64_MAX)) return Malformed("'stts' adds up to more than 2^63 ticks");
  if (t.ctts_) {
    uint64_t offsets = 0;
    for (uint32_t i = 0; i < t.ctts_->runs.count; ++i) offsets += t.ctts_->RunCount(i);
    if (offsets < n) return Malformed("'ctts' offsets # samples of #", {offsets, uint64_t(n)});
  }
  if (n == 0) {
    *out = t;
    return kNoErr;
  }

  // Every run of chunks starts after the previous one, holds samples, names an existing sample
  // description, and together the runs hold every sample within the chunks that exist.
  const uint32_t chunkCount = t.chunks_->offsets.count;
  const uint32_t runs = t.stsc_->runs.count;
  if (runs == 0) return Malformed("'stsc' has no runs for # samples", {uint64_t(n)});
  if (t.stsc_->FirstChunk(0) != 1)
    return Malformed("the first 'stsc' run starts at chunk #", {t.stsc_->FirstChunk(0)});
  const size_t descriptions = track.stsd->entries.size();
  uint64_t mapped = 0;
  for (uint32_t i = 0; i < runs && mapped < n; ++i) {
    const uint32_t first = t.stsc_->FirstChunk(i);
    const uint32_t perChunk = t.stsc_->SamplesPerChunk(i);
    const uint32_t description = t.stsc_->DescriptionIndex(i);
    if (first == 0 || first > chunkCount)
      return Malformed("'stsc' run # starts at chunk # of #", {i + 1ull, first, chunkCount});
    if (perChunk == 0) return Malformed("'stsc' run # has no samples per chunk", {i + 1ull});
    if (description == 0 || description > descriptions) {
      return Malformed("'stsc' run # names sample description # of #",
                       {i + 1ull, description, descriptions});
    }
    uint64_t end = uint64_t(chunkCount) + 1;
    if (i + 1 < runs) {
      const uint32_t next = t.stsc_->FirstChunk(i + 1);
      if (next <= first)
        return Malformed("'stsc' run # does not start after run #", {i + 2ull, i + 1ull});
      end = std::min<uint64_t>(next, end);
    }
    mapped = SaturatingAdd(mapped, (end - first) * perChunk);
  }
  if (mapped < n) return Malformed("'stsc' places # samples of # in chunks", {mapped, uint64_t(n)});
  *out = t;
  return kNoErr;
}

SamplePosition SamplePosition::First(const SampleTable& table) {
  SamplePosition p;
  p.table_ = &table;
  if (table.SampleCount() == 0) return p;
  // The totals were checked against the sample count, and the first run of chunks starts at the
  // first chunk, so every cursor is on the first sample's entry.
  p.deltas_ = RunLengthCursor::Counted(table.stts_->runs);
  if (table.ctts_) p.offsets_ = RunLengthCursor::Counted(table.ctts_->runs);
  p.chunks_ = RunLengthCursor::FirstIndexed(table.stsc_->runs, table.chunks_->offsets.count);
  p.chunkLeft_ = table.stsc_->SamplesPerChunk(p.chunks_.Run());
  p.offset_ = table.chunks_->OffsetAt(uint32_t(p.chunks_.Item()));
  return p;
}

Status SamplePosition::Current(SampleInfo* out) const {
  if (Empty()) return kMxErrEndOfTrack;
  const SampleTable& t = *table_;
  SampleInfo info;
  info.decodeTime = int64_t(decodeTime_);
  info.duration = t.stts_->RunDelta(deltas_.Run());
  const int64_t offset = t.ctts_ ? t.ctts_->RunOffset(offsets_.Run()) : 0;
  if (__builtin_add_overflow(info.decodeTime, offset, &info.presentationTime))
    return Malformed("sample #'s presentation time overflows", {sample_ + 1ull});
  info.size = t.sizes_->SizeAt(sample_);
  info.fileOffset = offset_;
  info.descriptionIndex = t.stsc_->DescriptionIndex(chunks_.Run());
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
  decodeTime_ += t.stts_->RunDelta(deltas_.Run());
  deltas_.StepForward();
  if (t.ctts_) offsets_.StepForward();
  if (--chunkLeft_ == 0) {
    chunks_.StepForward();
    chunkLeft_ = t.stsc_->SamplesPerChunk(chunks_.Run());
    offset_ = t.chunks_->OffsetAt(uint32_t(chunks_.Item()));
  }
  return true;
}

bool SamplePosition::StepBackward() {
  if (Empty() || sample_ == 0) return false;
  const SampleTable& t = *table_;
  --sample_;
  deltas_.StepBackward();
  decodeTime_ -= t.stts_->RunDelta(deltas_.Run());
  if (t.ctts_) offsets_.StepBackward();
  if (chunkLeft_ == t.stsc_->SamplesPerChunk(chunks_.Run())) {
    // Onto the last sample of the previous chunk: its offset is the chunk's plus the sizes of
    // the samples before it in that chunk.
    chunks_.StepBackward();
    const uint32_t perChunk = t.stsc_->SamplesPerChunk(chunks_.Run());
    offset_ = t.chunks_->OffsetAt(uint32_t(chunks_.Item()));
    for (uint32_t i = sample_ + 1 - perChunk; i < sample_; ++i) offset_ += t.sizes_->SizeAt(i);
    chunkLeft_ = 1;
  } else {
    ++chunkLeft_;
    offset_ -= t.sizes_->SizeAt(sample_);
  }
  return true;
}
