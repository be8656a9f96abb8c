// The 90 kHz MPEG-TS clock: time stamps run on 33 bits and wrap.
#pragma once

#include <cstdint>

inline constexpr uint64_t kMpegtsClockTicks = uint64_t{1} << 33;  // one turn of the clock
inline constexpr uint64_t kLatestMpegtsTime = kMpegtsClockTicks - 1;

// The long option of hlsvtt that writes a timestamp map's MPEGTS value anywhere on the clock,
// where -m carries only values that fit a signed 32-bit number.
inline constexpr const char* kTimestampMapMpegtsOption = "timestamp-map-mpegts";
