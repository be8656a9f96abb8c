#include "media/formats/movie/run_length_cursor.h"

#include <algorithm>

RunLengthCursor RunLengthCursor::Counted(const EntryTable& runs) {
  RunLengthCursor c;
  c.runs_ = runs;
  while (c.run_ < runs.count && c.RunLength(c.run_) == 0) ++c.run_;
  c.onItem_ = c.run_ < runs.count;
  return c;
}

RunLengthCursor RunLengthCursor::FirstIndexed(const EntryTable& runs, uint64_t itemCount) {
  RunLengthCursor c;
  c.runs_ = runs;
  c.firstIndexed_ = true;
  c.itemCount_ = itemCount;
  while (c.run_ < runs.count && c.RunLength(c.run_) == 0) ++c.run_;
  c.onItem_ = c.run_ < runs.count;
  return c;
}

uint64_t RunLengthCursor::RunLength(uint32_t run) const {
  const uint64_t first = runs_.Field(run, 0, 4);
  if (!firstIndexed_) return first;
  // A run that starts at or after the next one's first item, or after the last item, is empty.
  uint64_t end = itemCount_ + 1;
  if (run + 1 < runs_.count) end = std::min(end, runs_.Field(run + 1, 0, 4));
  return end > first ? end - first : 0;
}

bool RunLengthCursor::StepForward() {
  if (!onItem_) return false;
  if (inRun_ + 1 < RunLength(run_)) {
    ++inRun_;
  } else {
    uint32_t next = run_ + 1;
    while (next < runs_.count && RunLength(next) == 0) ++next;
    if (next >= runs_.count) return false;
    run_ = next;
    inRun_ = 0;
  }
  ++item_;
  return true;
}

bool RunLengthCursor::StepBackward() {
  if (!onItem_) return false;
  if (inRun_ > 0) {
    --inRun_;
  } else {
    uint32_t previous = run_;
    do {
      if (previous == 0) return false;
      --previous;
    } while (RunLength(previous) == 0);
    run_ = previous;
    inRun_ = RunLength(previous) - 1;
  }
  --item_;
  return true;
}
