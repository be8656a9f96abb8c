#include "driver/cue_scheduler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "driver/chunk_file_settings.h"
#include "driver/schedule_size.h"
#include "driver/source_encoding.h"
#include "log/output.h"
#include "media/formats/webvtt/webvtt_parser.h"
#include "segments/chunk_file.h"
#include "webvtt/segment_writer.h"

namespace {

// Why a source could not be parsed, in words.
std::string ParseFailureReason(Status status) {
  switch (status) {
    case kMxErrEndOfStream:
      return "the file is empty";
    case kWebVTTErrBadCueTime:
      return "a cue ends at 0";
    default:
      if (status > 0) return strerror(status);
      return "no cues could be read (error " + std::to_string(status) + ")";
  }
}

class CueScheduler {
 public:
  CueScheduler(const RunSettings& settings, ChunkFile* chunk, WebVTTCueStore& cues)
      : settings_(settings),
        chunk_(chunk),
        cues_(cues),
        timestampMapValue_(TimestampMapValue(settings)),
        segmentEnd_(settings.targetDuration) {}

  // Returns the run's result. The chunk file is released (or given up on failure) either way.
  Status Run() {
    size_t index = 0;
    while (NextCue(&index)) {
      const WebVTTCueRecord& cue = cues_[index];
      lastEnd_ = cue.end;
      OutputMessage(2, "Next cue %p %g --> %g", static_cast<const void*>(&cue), cue.start, cue.end);
      if (!(cue.start < segmentEnd_)) {
        if (segmentHasContent_) {
          Status status = EndSegment();
          if (status != kNoErr) return status;
          continue;
        }
        StretchToGridLineAfter(cue.start);
      }
      Status status = segmentHasContent_ ? kNoErr : WriteSegmentHeader(chunk_, timestampMapValue_);
      if (status == kNoErr) status = WriteCue(chunk_, cues_, cue);
      if (status != kNoErr) return Fail(status);
      OutputMessage(2, "Wrote cue %p %g --> %g", static_cast<const void*>(&cue), cue.start,
                    cue.end);
      TakeCue();
      if (cue.end <= segmentEnd_) {
        OutputMessage(2, "Removed cue %p %g --> %g", static_cast<const void*>(&cue), cue.start,
                      cue.end);
      } else {
        OutputMessage(2, "Moved cue %p %g --> %g to carryOverQueue", static_cast<const void*>(&cue),
                      cue.start, cue.end);
        carryOver_.push_back(index);
      }
      segmentHasContent_ = true;
    }
    return EndOfInput();
  }

 private:
  // The cues still to write are the ones carried into this segment (from `repeatNext_` on),
  // then the store's from `next_` on.
  bool NextCue(size_t* index) const {
    if (repeatNext_ < repeat_.size()) {
      *index = repeat_[repeatNext_];
      return true;
    }
    *index = next_;
    return next_ < cues_.size();
  }
  void TakeCue() {
    if (repeatNext_ < repeat_.size()) {
      repeatNext_++;
    } else {
      next_++;
    }
  }

  // An empty segment is stretched to the first grid line after `start`, so that a stretch
  // without cues is folded into the segment of the next cue. The jump is computed rather than
  // stepped so that a cue hours or years away costs nothing; for grid values below 2^53 the
  // result is exactly what repeated addition gives. (A target duration of 0 never reaches it.)
  void StretchToGridLineAfter(double start) {
    const double step = settings_.targetDuration;
    if (!(start < segmentEnd_) && step > 0) {
      segmentEnd_ += step * std::floor((start - segmentEnd_) / step);
    }
    while (!(start < segmentEnd_)) {
      double next = segmentEnd_ + step;
      // Past 2^53 adding a step may change nothing: go just beyond the start instead.
      segmentEnd_ = (next == segmentEnd_ && step > 0) ? std::nextafter(start, HUGE_VAL) : next;
    }
  }

  // A segment could not be written or closed: the stream is broken, so it is given up without a
  // playlist that would look complete.
  Status Fail(Status status) {
    OutputMessage(0, "Failed to generate chunk files with index %u, file %s",
                  ChunkFileSegmentCount(chunk_),
                  settings_.inputPath ? settings_.inputPath : "(source)");
    ChunkFileAbandon(chunk_);
    return status;
  }

  Status EndSegment() {
    Status status = ChunkFileMoveToNextFileSecs(chunk_, segmentEnd_ - segmentStart_);
    if (status != kNoErr) return Fail(status);
    // Carried cues go back in front of the unwritten ones, in their earlier order, to be
    // written again with their own times at the top of the next segment.
    std::vector<size_t> repeat;
    for (size_t index : carryOver_) {
      if (cues_[index].end > segmentEnd_) repeat.push_back(index);
    }
    repeat.insert(repeat.end(), repeat_.begin() + static_cast<std::ptrdiff_t>(repeatNext_),
                  repeat_.end());
    repeat_ = std::move(repeat);
    repeatNext_ = 0;
    carryOver_.clear();
    // Cues before every one still to write are done with: their memory goes.
    size_t oldest = next_;
    for (size_t index : repeat_) oldest = std::min(oldest, index);
    cues_.ReleaseBefore(oldest);
    segmentStart_ = segmentEnd_;
    segmentEnd_ += settings_.targetDuration;
    segmentHasContent_ = false;
    return kNoErr;
  }

  Status EndOfInput() {
    if (!carryOver_.empty()) {
      lastEnd_ = 0;
      for (size_t index : carryOver_) lastEnd_ = std::max(lastEnd_, cues_[index].end);
    }
    double totalSeconds = std::max(settings_.duration, lastEnd_);
    return ChunkFileReleaseSecs(chunk_, totalSeconds - segmentStart_, totalSeconds);
  }

  const RunSettings& settings_;
  ChunkFile* chunk_;
  WebVTTCueStore& cues_;
  size_t next_ = 0;                // the store's first cue not yet written
  std::vector<size_t> repeat_;     // cues carried into the current segment
  size_t repeatNext_ = 0;          // the first of them not yet written
  std::vector<size_t> carryOver_;  // cues written here that reach into the next segment
  const uint64_t timestampMapValue_;
  double segmentStart_ = 0;
  double segmentEnd_;
  bool segmentHasContent_ = false;
  double lastEnd_ = 0;
};

}  // namespace

Status RunWebVTTSource(const RunSettings& settings, const RunEnvironment& environment,
                       MxByteStream* stream) {
  return RunWebVTTSourceInto(
      settings, stream,
      MakeChunkFileSettings(settings, environment, settings.fileBase, settings.baseURL));
}

Status RunWebVTTSourceInto(const RunSettings& settings, MxByteStream* stream,
                           const ChunkFileSettings& chunkSettings) {
  const char* source = settings.inputPath ? settings.inputPath : "(source)";
  // The whole source is parsed and its schedule measured before the output stream is made, so
  // that a source refused here leaves nothing behind, not even a key file.
  WebVTTParserHandle parser;
  Status status = ReadSourceCues(settings, stream, &parser);
  if (!parser) return kErrCreateFailed;
  if (status != kNoErr) {
    OutputMessage(0, "%s: cannot read the source: %s", source, ParseFailureReason(status).c_str());
    return kErrParse;
  }
  WebVTTCueStore& cues = *WebVTTParserGetCueStore(parser.get());
  if (cues.empty()) {
    OutputMessage(1, "%s: no cues found (a WebVTT or SRT file in UTF-8 is expected)", source);
  }
  return ScheduleCuesInto(settings, cues, chunkSettings);
}

Status ScheduleCuesInto(const RunSettings& settings, WebVTTCueStore& cues,
                        const ChunkFileSettings& chunkSettings) {
  const char* source = settings.inputPath ? settings.inputPath : "(source)";
  if (cues.empty()) {
    // Nothing to cut: the run writes an empty rendition.
  } else if (settings.targetDuration == 0) {
    // Segments on a grid of zero seconds would never end.
    OutputMessage(0, "%s: a target duration of 0 cannot cut cues into segments", source);
    return kErrBadArgument;
  } else {
    const ScheduleSize size = MeasureSchedule(cues, settings.targetDuration);
    if (!ScheduleWithinLimits(size)) {
      OutputMessage(0,
                    "%s: refused: its %zu cues would need %.0f segments (at most %.0f) and %.0f "
                    "cue copies (at most %.0f)",
                    source, size.cues, size.segments, kMaxSegments, size.cueCopies,
                    MaxCueCopies(size.cues));
      return kErrBadArgument;
    }
  }

  ChunkFile* chunk = ChunkFileCreate(chunkSettings);
  if (chunk == nullptr) {
    OutputMessage(0, "can't set up the output stream in %s",
                  settings.fileBase ? settings.fileBase : ".");
    return kErrCreateFailed;
  }
  ChunkFileSetFileExtension(chunk, ".webvtt");
  CueScheduler scheduler(settings, chunk, cues);
  return scheduler.Run();
}
