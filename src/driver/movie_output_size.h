// How much a movie source makes a run write, measured from the subtitle tracks' sample tables
// before anything is written, and the limits beyond which a movie is refused. A header may list
// any number of tracks and samples, and samples may share their bytes, so a small movie can ask
// for an unbounded output.
#pragma once

#include <cstdint>

#include "common/status.h"
#include "driver/run_settings.h"
#include "driver/schedule_size.h"
#include "media/formatreader/format_reader.h"

// Subtitle tracks per movie. A film carries a few dozen; each track makes up to two directories
// and two lines of the variant playlist.
constexpr unsigned kMaxMovieSubtitleTracks = 1000;
// Samples over all subtitle tracks. A film's track holds a few thousand cues and about as many
// empty samples between them; every sample is read and decoded once per stream of its track.
constexpr uint64_t kMaxMovieSubtitleSamples = 10000000;
// Sample bytes over all subtitle tracks beyond the length of the file. The samples of a movie
// lie in the file each with bytes of its own, so their total stays within the file's length;
// the margin leaves room for a few samples that share bytes. Each sample byte becomes at most
// a few bytes of output ("&" is written as "&amp;"), once per stream of its track.
constexpr uint64_t kExtraSampleBytes = 4u << 20;

struct MovieOutputLimits {
  unsigned subtitleTracks = kMaxMovieSubtitleTracks;
  double segmentsPerTrack = kMaxSegments;  // as for a WebVTT source
  uint64_t samples = kMaxMovieSubtitleSamples;
  uint64_t extraBytes = kExtraSampleBytes;
};

// Copies the track at `index` when it is a subtitle track ('sbtl'); false for any other track
// and for one that cannot be copied (the segmenting pass reports that).
bool CopySubtitleTrackAt(QorFormatReader* reader, int64_t index, QorTrackReaderRef* track);

struct TrackOutputSize {
  uint64_t samples = 0;  // samples read
  uint64_t bytes = 0;    // their bytes
  double segments = 0;   // segment files of the track's stream
};

// Measures the samples of `track` in the order the converter reads them, up to `maxSamples`
// samples (one more is counted when there are more). Segments are counted as the converter
// cuts them on a grid of `targetDuration` seconds, with every sample that has room for text
// taken as a cue; the forced stream writes some of the same cues and so needs no more segments
// when cue times increase. Counting ends where the converter would fail (a sample whose bytes lie
// outside the file, or without timing), since nothing after that is written.
Status MeasureTrackOutput(QorTrackReader* track, uint32_t targetDuration, uint64_t maxSamples,
                          TrackOutputSize* out);

// Refuses with kErrBadArgument, and a message naming the source, the track and the limit, a movie
// whose subtitle tracks exceed one of `limits`: too many tracks, a track that needs too many
// segments, or too many samples or sample bytes over all tracks. `fileLength` is the source's.
Status CheckMovieOutputSize(const RunSettings& s, QorFormatReader* reader, int64_t trackCount,
                            int64_t fileLength, const MovieOutputLimits& limits = {});
