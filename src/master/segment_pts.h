// The first presentation time stamp of a video segment: the value that makes subtitle cue times
// line up with the video when it is given to hlsvtt as -m. Segments are MPEG transport streams or
// fragmented MP4 media segments read with their init segment; a media playlist names both.
#pragma once

#include <cstdint>
#include <string>

#include "common/status.h"
#include "master/playlist_first_segment.h"
#include "media/formats/movie/fragment_start.h"

// 90 kHz units, of the first video stream, else of the first audio stream. kMxErrNotMPEGStream
// for a file that is not a transport stream, kMxErrPropertyNotAvailable when no such stream has
// a time stamp near the start; errno values when the file cannot be read.
Status ReadSegmentFirstPTS(const std::string& path, int64_t* pts);

// True when the file starts with a box header of a fragmented MP4 segment or init segment.
bool LooksLikeFragmentedMovie(const std::string& path);

// The start of a fragmented MP4 media segment in 90 kHz units, with what it was computed from in
// `start`. kMovieErrMalformed with `problem` set, and `problemFile` naming the file at fault, for
// a broken file; errno values when a file cannot be read (`problemFile` names it too).
Status ReadFragmentedSegmentStart(const std::string& initPath, const std::string& segmentPath,
                                  int64_t* pts, FragmentStart* start, std::string* problem,
                                  std::string* problemFile);

// The start of the segment `files` names, in 90 kHz units: a transport stream when `init` is
// empty, else a fragmented MP4 media segment with its init segment. On failure `error` says why,
// naming the file at fault. `warning` is set, and the start is still given, when the init segment
// has no video track and the start is that of another track.
Status ReadSegmentStart(const FirstSegmentFiles& files, int64_t* pts, std::string* warning,
                        std::string* error);
