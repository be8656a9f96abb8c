#include "driver/movie_output_size.h"

#include <cinttypes>

#include "log/output.h"
#include "webvtt/text_track_converter.h"

namespace {

// A text sample is a 16-bit length and the text: a sample of two bytes or fewer holds no text.
constexpr int64_t kEmptySampleSize = 2;

}  // namespace

bool CopySubtitleTrackAt(QorFormatReader* reader, int64_t index, QorTrackReaderRef* track) {
  FourCC mediaType = 0;
  return QorFormatReaderCopyTrackByIndex(reader, index, track, &mediaType, nullptr) == kNoErr &&
         mediaType == MxFourCC("sbtl");
}

Status MeasureTrackOutput(QorTrackReader* track, uint32_t targetDuration, uint64_t maxSamples,
                          TrackOutputSize* out) {
  *out = TrackOutputSize{};
  QorSampleCursorServiceRef service;
  Status status = QorTrackReaderCopySampleCursorService(track, &service);
  if (status != kNoErr) return status;
  QorSampleCursorRef cursor;
  status = QorSampleCursorServiceCreateCursorAtFirstSample(service.get(), &cursor);
  if (status == kMxErrEndOfTrack) return kNoErr;  // no samples
  if (status != kNoErr) return status;

  const double target = targetDuration;
  bool segmentOpen = false;
  double nextBoundary = target;
  while (out->samples <= maxSamples) {
    QorSampleLocation location;
    MxTime pts;
    if (cursor->CopySampleLocation(&location) != kNoErr ||
        cursor->GetOutputTiming(&pts, nullptr) != kNoErr)
      break;
    ++out->samples;
    out->bytes += uint64_t(location.length);
    if (location.length > kEmptySampleSize) {
      // The converter's rule: a cue that starts after the boundary opens the next segment.
      const double start = MillisecondSeconds(pts);
      if (!segmentOpen) {
        segmentOpen = true;
        out->segments = 1;
      } else if (start > nextBoundary) {
        ++out->segments;
        nextBoundary = start + target;
      }
    }
    int64_t stepped = 0;
    if (QorSampleCursorStep(cursor.get(), 1, &stepped) != kNoErr || stepped != 1) break;
  }
  return kNoErr;
}

Status CheckMovieOutputSize(const RunSettings& s, QorFormatReader* reader, int64_t trackCount,
                            int64_t fileLength, const MovieOutputLimits& limits) {
  unsigned subtitleTracks = 0;
  for (int64_t index = 0; index < trackCount; ++index) {
    QorTrackReaderRef track;
    if (CopySubtitleTrackAt(reader, index, &track) && ++subtitleTracks > limits.subtitleTracks) {
      OutputMessage(0, "%s: refused: track %u is one subtitle track more than the %u allowed",
                    s.inputPath, unsigned(index), limits.subtitleTracks);
      return kErrBadArgument;
    }
  }

  const uint64_t maxBytes = uint64_t(fileLength > 0 ? fileLength : 0) + limits.extraBytes;
  uint64_t samples = 0, bytes = 0;
  for (int64_t index = 0; index < trackCount; ++index) {
    QorTrackReaderRef track;
    if (!CopySubtitleTrackAt(reader, index, &track)) continue;
    TrackOutputSize size;
    // A track whose samples cannot be reached is left to the segmenting pass, which reports it.
    if (MeasureTrackOutput(track.get(), s.targetDuration, limits.samples - samples, &size) !=
        kNoErr)
      continue;
    samples += size.samples;
    bytes += size.bytes;
    if (size.segments > limits.segmentsPerTrack) {
      OutputMessage(0, "%s: refused: track %u would need %.0f segments (at most %.0f)", s.inputPath,
                    unsigned(index), size.segments, limits.segmentsPerTrack);
      return kErrBadArgument;
    }
    if (samples > limits.samples) {
      OutputMessage(
          0, "%s: refused: with track %u its subtitle tracks hold more than %" PRIu64 " samples",
          s.inputPath, unsigned(index), limits.samples);
      return kErrBadArgument;
    }
    if (bytes > maxBytes) {
      OutputMessage(0,
                    "%s: refused: with track %u its subtitle samples take %" PRIu64
                    " bytes (at most %" PRIu64 ", the file's length plus %" PRIu64 ")",
                    s.inputPath, unsigned(index), bytes, maxBytes, limits.extraBytes);
      return kErrBadArgument;
    }
  }
  return kNoErr;
}
