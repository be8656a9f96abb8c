// What a container probe finds out: the tracks (media type as a four-character code, track ID)
// and the duration, exact when the container states it and an estimate otherwise.
#pragma once

#include <cstdint>
#include <vector>

#include "media/core/mx_time.h"

constexpr uint32_t FourCC(const char (&s)[5]) {
  return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
         (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}

inline constexpr uint32_t kProbeMediaType_Video = FourCC("vide");
inline constexpr uint32_t kProbeMediaType_Sound = FourCC("soun");
inline constexpr uint32_t kProbeMediaType_Text = FourCC("text");
inline constexpr uint32_t kProbeMediaType_Music = FourCC("musi");

struct ProbedTrack {
  uint32_t mediaType = 0;
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
