// When the cues of a subtitle rendition show against a video variant. A WebVTT segment's
// X-TIMESTAMP-MAP ties its cue time LOCAL to the 90 kHz time MPEGTS; a player shows a cue at
// cue time t at video time t - LOCAL + (MPEGTS - start) / 90000, where `start` is the time stamp
// of the variant's first frame. The cues are in step when MPEGTS - 90000 x LOCAL equals `start`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Differences up to this many 90 kHz ticks (1 ms) are in step.
constexpr int64_t kTimingTolerance = 90;

// X-TIMESTAMP-MAP of a segment header: MPEGTS, and LOCAL in milliseconds.
struct TimestampMap {
  uint64_t mpegts = 0;
  uint64_t localMilliseconds = 0;
};

// The value of an X-TIMESTAMP-MAP line ("MPEGTS:<integer>,LOCAL:<WebVTT timestamp>", the two in
// either order), or nothing when it is malformed.
std::optional<TimestampMap> ParseTimestampMap(std::string_view value);

// The X-TIMESTAMP-MAP of the header block at the start of `head` (a WebVTT segment's first
// bytes), or nothing when the header has none or it is malformed.
std::optional<TimestampMap> FindTimestampMap(std::string_view head);

// How far, in 90 kHz ticks, cues show after (positive) or before (negative) their time against
// a video whose first frame has the time stamp `start`. Time stamps run on a 33-bit clock that
// wraps, so the difference is taken modulo 2^33, between -2^32 and 2^32.
int64_t CueLateness(const TimestampMap& map, int64_t start);

// "cues will show 8.600 s late; segment again with -m 126000", or with the long option when
// -m cannot carry `start`; "late against VARIANT" when `against` names a variant.
std::string DescribeCueLateness(int64_t lateness, int64_t start, const std::string& against);
