#include "driver/schedule_size.h"

#include <algorithm>
#include <cmath>

// Segment k of the grid covers [k T, (k+1) T). A cue is written first into the segment of its
// start and then into every following one that its end reaches, but only up to the segment of
// the last cue's start: the stream ends there. The segment files are the union of those index
// ranges (a stretch without cues is folded into the next file). Indices are doubles: a hostile
// source may put them far beyond any integer type.
ScheduleSize MeasureSchedule(const WebVTTCueStore& cues, uint32_t targetDuration) {
  ScheduleSize size;
  const double step = targetDuration;
  auto first = [step](const WebVTTCueRecord& c) { return std::floor(c.start / step); };
  auto last = [step, &first](const WebVTTCueRecord& c) {
    return std::max(first(c), std::ceil(c.end / step) - 1);
  };
  double lastSegment = 0;
  size.cues = cues.size();
  for (size_t i = 0; i < cues.size(); i++) {
    const WebVTTCueRecord& c = cues[i];
    lastSegment = std::max(lastSegment, first(c));
  }
  bool open = false;
  double runStart = 0, runEnd = 0;  // the current run of consecutive segments
  for (size_t i = 0; i < cues.size(); i++) {
    const WebVTTCueRecord& c = cues[i];
    const double from = first(c);
    const double to = std::min(last(c), lastSegment);
    size.cueCopies += to - from + 1;
    if (open && from <= runEnd + 1) {
      runEnd = std::max(runEnd, to);
    } else {
      if (open) size.segments += runEnd - runStart + 1;
      open = true;
      runStart = from;
      runEnd = to;
    }
  }
  if (open) size.segments += runEnd - runStart + 1;
  return size;
}

double MaxCueCopies(size_t cues) {
  return kCueCopiesPerCue * static_cast<double>(cues) + kExtraCueCopies;
}

bool ScheduleWithinLimits(const ScheduleSize& size) {
  return size.segments <= kMaxSegments && size.cueCopies <= MaxCueCopies(size.cues);
}
