// When the first frame of a fragmented movie segment is shown, in the 90 kHz clock of a
// subtitle timestamp map. The init segment gives the track, its timescale and its edit list; the
// first movie fragment of a media segment gives the decode time and composition offset of that
// track's first sample. The start is
//   90000 x (decode time + composition offset - E) / timescale
// rounded half away from zero, where E is the media time of the first edit when that edit is not
// an empty one, else 0: an empty edit in front is not applied.
//
// Reads are bounded: only top-level box headers are read up to the movie box (init segment) or
// the first movie fragment (media segment), and that one box is read whole if it is at most
// kMaxFragmentBoxBytes.
#pragma once

#include <cstdint>
#include <string>

#include "common/status.h"
#include "media/core/byte_stream.h"

inline constexpr uint64_t kMaxFragmentBoxBytes = 16ull << 20;
// Top-level boxes looked at before the movie box or the first movie fragment.
inline constexpr int kMaxTopLevelBoxes = 64;

struct FragmentStart {
  // From the init segment: the first video track ('vide' handler), else the first track.
  uint32_t trackID = 0;
  uint32_t handlerType = 0;
  uint32_t timescale = 0;
  int64_t editMediaTime = 0;  // E above
  // From the media segment's first fragment of that track.
  uint64_t decodeTime = 0;
  int64_t compositionOffset = 0;
};

// Fills the init segment's part of `start`. kMovieErrMalformed with a description in `problem`
// for a broken or incomplete init segment; the stream's own errors as they come.
Status ReadFragmentInitTrack(MxByteStream* init, FragmentStart* start, std::string* problem);

// Fills the media segment's part of `start` for the track already chosen.
Status ReadFirstFragmentTiming(MxByteStream* segment, FragmentStart* start, std::string* problem);

// The start in 90 kHz units. kErrBadArgument when it does not fit in 64 bits.
Status FragmentStartIn90kHz(const FragmentStart& start, int64_t* out);
