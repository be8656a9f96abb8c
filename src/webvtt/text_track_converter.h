// Conversion of one movie text track into WebVTT segments: every non-empty sample becomes one cue
// with its bold, italic and underline runs as tags and "<", ">" and "&" escaped. The first
// segment covers [0, target]; a later segment starts at the start of the cue that opens it, and a
// cue stays whole in the segment where it starts.
#pragma once

#include <cstdint>

#include "common/status.h"
#include "media/formatreader/format_reader.h"
#include "segments/chunk_file.h"

// Writes the samples of `trackReader` into `chunk`, each segment's timestamp map carrying
// `timestampMapValue` as its MPEGTS value. With `forcedOnly` (low byte 1) only samples
// marked forced are written. `sawForced` is set when any sample is marked forced (never cleared).
// `lastSegmentDuration` and `lastEndTime` (seconds) are set whenever the sample loop ends,
// including at the end of the track; they are meant for ChunkFileReleaseSecs. A last cue ending
// before `presentationEnd` has the stream extended to it. Reaching the end of the track is
// success. A sample whose times lie outside 0 to kLatestOutputSeconds makes the movie malformed
// (kMovieErrMalformed).
Status WriteTextTrackAsWebVTT(ChunkFile* chunk, uint32_t forcedOnly, uint32_t targetDurationSecs,
                              uint64_t timestampMapValue, QorFormatReader* formatReader,
                              QorTrackReader* trackReader, uint8_t* sawForced,
                              double* lastSegmentDuration, double* lastEndTime,
                              double presentationEnd);

// Seconds of a media time, rounded half away from zero to whole milliseconds.
double MillisecondSeconds(MxTime time);
