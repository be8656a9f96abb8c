// The boxes of a movie fragment that decide when its first sample is shown: the track fragment
// header, the decode time of the fragment's first sample, and the track run that holds the first
// sample's composition offset. Like the header boxes, each parse function gets the box's payload
// and answers kNoErr or kMovieErrMalformed.
#pragma once

#include <cstdint>
#include <span>

#include "common/status.h"

// 'tfhd': only the track ID is kept; the optional defaults that follow it carry no composition
// offset.
struct TrackFragmentHeaderBox {
  uint32_t trackID = 0;
  Status Parse(std::span<const uint8_t> payload);
};

// 'tfdt': version 0 holds a 32-bit time, version 1 a 64-bit one.
struct TrackFragmentDecodeTimeBox {
  uint64_t baseMediaDecodeTime = 0;
  Status Parse(std::span<const uint8_t> payload);
};

// 'trun': the sample count and the first sample's composition offset. Each sample's record holds
// the fields its flags name; the count is checked against the payload, so a run claiming more
// samples than its box can hold is malformed. Without per-sample composition offsets the offset
// is 0. Version 0 offsets are unsigned, version 1 offsets signed.
struct TrackRunBox {
  uint32_t sampleCount = 0;
  int64_t firstCompositionOffset = 0;
  Status Parse(std::span<const uint8_t> payload);
};
