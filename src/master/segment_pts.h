// The first presentation time stamp of an MPEG transport stream segment: the value that makes
// subtitle cue times line up with the video when it is given to hlsvtt as -m.
#pragma once

#include <cstdint>
#include <string>

#include "common/status.h"

// 90 kHz units, of the first video stream, else of the first audio stream. kMxErrNotMPEGStream
// for a file that is not a transport stream, kMxErrPropertyNotAvailable when no such stream has
// a time stamp near the start; errno values when the file cannot be read.
Status ReadSegmentFirstPTS(const std::string& path, int64_t* pts);
