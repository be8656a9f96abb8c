#include "media/formats/mpeg/mpeg_timeline.h"

#include "media/formats/mpeg/pes_header.h"

namespace {
// Successive stamps of one stream further apart than this are a discontinuity, not a step.
constexpr uint64_t kLongestStep = 10 * kMPEGClockRate;
}  // namespace

uint64_t MPEGTimeline::Since(uint64_t from, uint64_t stamp) {
  return (stamp + kMPEGClockWrap - from) % kMPEGClockWrap;
}

void MPEGTimeline::AddHead(uint32_t stream, uint64_t stamp) {
  StreamState& state = streams_[stream];
  if (state.haveFirst) return;
  state.haveFirst = true;
  state.first = stamp;
}

void MPEGTimeline::AddTail(uint32_t stream, uint64_t stamp) {
  auto it = streams_.find(stream);
  if (it == streams_.end() || !it->second.haveFirst) return;
  StreamState& state = it->second;
  const uint64_t since = Since(state.first, stamp);
  // A stamp that lies just before the stream's first one (a reordered picture) is not a wrap.
  if (since > kMPEGClockWrap - kLongestStep) return;
  if (!state.haveLast || since > Since(state.first, state.last)) state.last = stamp;
  state.haveLast = true;
  if (state.havePrevious) {
    const uint64_t step = Since(state.previous, stamp);
    if (step > 0 && step < kLongestStep && (state.step == 0 || step < state.step))
      state.step = step;
  }
  state.previous = stamp;
  state.havePrevious = true;
}

void MPEGTimeline::AddHeadClock(uint64_t clock) {
  if (haveHeadClock_) return;
  haveHeadClock_ = true;
  headClock_ = clock;
}

void MPEGTimeline::AddTailClock(uint64_t clock) {
  haveTailClock_ = true;
  tailClock_ = clock;
}

bool MPEGTimeline::ClockDuration(uint64_t* ticks) const {
  if (!haveHeadClock_ || !haveTailClock_) return false;
  *ticks = Since(headClock_, tailClock_);
  return true;
}

bool MPEGTimeline::First(uint32_t stream, uint64_t* stamp) const {
  auto it = streams_.find(stream);
  if (it == streams_.end() || !it->second.haveFirst) return false;
  *stamp = it->second.first;
  return true;
}
