// What a container probe finds out: the tracks (media type as a four-character code, track ID)
// and the duration, exact when the container states it and an estimate otherwise.
#pragma once

#include <cstdint>
#include <vector>

#include "media/core/four_cc.h"
#include "media/core/mx_time.h"

inline constexpr uint32_t kProbeMediaType_Video = MxFourCC("vide");
inline constexpr uint32_t kProbeMediaType_Sound = MxFourCC("soun");
inline constexpr uint32_t kProbeMediaType_Text = MxFourCC("text");
inline constexpr uint32_t kProbeMediaType_Music = MxFourCC("musi");

struct ProbedTrack {
  FourCC mediaType = 0;
  uint32_t trackID = 0;
};

struct ContainerProbe {
  std::vector<ProbedTrack> tracks;
  // True when `duration` is stated by the container (or counted from every frame); false when it
  // is an estimate.
  bool durationIsExact = false;
  MxTime duration = kMxTimeInvalid;
};

// A duration of `count` units of `unitsPerSecond`ths of a second (frames at a frame rate,
// samples at a sample rate), kept exact when it fits and rounded to microseconds otherwise.
MxTime ProbeDurationFromCount(uint64_t count, uint64_t unit, uint64_t unitsPerSecond);
MxTime ProbeDurationFromSeconds(double seconds);
