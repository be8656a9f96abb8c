// How much a WebVTT source makes the scheduler write, computed from the parsed cues without
// writing anything, and the limits beyond which a source is refused. A cue that runs across
// segment boundaries is repeated in every segment it reaches, so a small source can ask for
// an unbounded output.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/formats/webvtt/webvtt_parser.h"

struct ScheduleSize {
  size_t cues = 0;
  double segments = 0;   // segment files
  double cueCopies = 0;  // cues written, counting every repetition
};

constexpr double kMaxSegments = 1000000;
// Cue copies allowed: this many per cue, plus kExtraCueCopies.
constexpr double kCueCopiesPerCue = 100;
constexpr double kExtraCueCopies = 1000000;

// The schedule of `cues` (in source order, starts not decreasing) on a grid of
// `targetDuration` seconds (not 0).
ScheduleSize MeasureSchedule(const WebVTTCueStore& cues, uint32_t targetDuration);
double MaxCueCopies(size_t cues);
bool ScheduleWithinLimits(const ScheduleSize& size);
