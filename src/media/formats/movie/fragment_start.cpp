#include "media/formats/movie/fragment_start.h"

#include <algorithm>
#include <climits>
#include <new>
#include <optional>
#include <span>
#include <vector>

#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"
#include "media/core/four_cc.h"
#include "media/formats/movie/fragment_boxes.h"
#include "media/formats/movie/movie_boxes.h"

namespace {

Status Malformed(std::string* problem, std::string text) {
  *problem = std::move(text);
  return QorSignalErrorAt(kMovieErrMalformed);
}

std::string Quoted(uint32_t type) {
  return "'" + MxFourCCToString(type) + "'";
}

Status ReadExactly(MxByteStream* stream, int64_t offset, size_t size, uint8_t* destination,
                   std::string* problem) {
  size_t done = 0;
  Status err = MxByteStreamReadFully(stream, size, offset, destination, &done);
  if (err == kMxErrEndOfStream) return Malformed(problem, "the file ends inside a box");
  return err;
}

// Walks the top-level boxes of `stream` to the first box of type `wanted` and reads its payload.
// A box of type `stopAt` before it ends the search.
Status ReadTopLevelBox(MxByteStream* stream, uint32_t wanted, uint32_t stopAt,
                       std::vector<uint8_t>* payload, std::string* problem) {
  int64_t length = 0;
  if (Status err = stream->GetLength(0, &length)) return err;
  int64_t offset = 0;
  for (int boxes = 0; boxes < kMaxTopLevelBoxes && length - offset >= 8; ++boxes) {
    uint8_t raw[32];
    const size_t want = size_t(std::min<int64_t>(sizeof raw, length - offset));
    if (Status err = ReadExactly(stream, offset, want, raw, problem)) return err;
    MxByteCursor c(std::span<const uint8_t>(raw, want));
    BoxHeader h;
    if (ParseBoxHeader(c, uint64_t(length - offset), &h) != kNoErr)
      return Malformed(problem, "a top-level box at byte " + std::to_string(offset) +
                                    " has a size that does not fit the file");
    if (h.type == stopAt)
      return Malformed(problem, Quoted(stopAt) + " comes before any " + Quoted(wanted));
    if (h.type == wanted) {
      const uint64_t size = h.size - h.headerSize;
      if (size > kMaxFragmentBoxBytes)
        return Malformed(problem, Quoted(wanted) + " is larger than " +
                                      std::to_string(kMaxFragmentBoxBytes) + " bytes");
      try {
        payload->resize(size_t(size));
      } catch (const std::bad_alloc&) {
        return QorSignalErrorAt(kMxErrAllocationFailed);
      }
      return ReadExactly(stream, offset + h.headerSize, payload->size(), payload->data(), problem);
    }
    offset += int64_t(h.size);
  }
  return Malformed(problem, "no " + Quoted(wanted) + " box among the first top-level boxes");
}

// Calls `visit(type, payload)` for each child box of `payload` until it answers non-zero.
// Children end at a box header that does not fit; a trailing word of zeroes is ignored.
template <class Visit>
Status ForEachChild(std::span<const uint8_t> payload, uint32_t parent, std::string* problem,
                    Visit visit) {
  MxByteCursor c(payload);
  while (c.Remaining() >= 8) {
    BoxHeader h;
    std::span<const uint8_t> body;
    if (ParseBoxHeader(c, c.Remaining(), &h) != kNoErr ||
        !c.Take(size_t(h.size - h.headerSize), &body))
      return Malformed(problem, "a box inside " + Quoted(parent) + " does not fit in it");
    if (Status err = visit(h.type, body)) return err;
  }
  return kNoErr;
}

// The first child of `type`, if any.
Status FindChild(std::span<const uint8_t> payload, uint32_t parent, uint32_t type,
                 std::optional<std::span<const uint8_t>>* found, std::string* problem) {
  found->reset();
  return ForEachChild(payload, parent, problem,
                      [&](uint32_t t, std::span<const uint8_t> body) -> Status {
                        if (t != type || *found) return kNoErr;
                        *found = body;
                        return kNoErr;
                      });
}

template <class Box>
Status ParseChild(std::span<const uint8_t> payload, uint32_t parent, uint32_t type,
                  std::optional<Box>* box, std::string* problem) {
  std::optional<std::span<const uint8_t>> body;
  if (Status err = FindChild(payload, parent, type, &body, problem)) return err;
  if (!body) return kNoErr;
  Box parsed;
  if (parsed.Parse(*body) != kNoErr) return Malformed(problem, Quoted(type) + " is broken");
  *box = parsed;
  return kNoErr;
}

struct InitTrack {
  std::optional<TrackHeaderBox> tkhd;
  std::optional<MediaHeaderBox> mdhd;
  std::optional<HandlerBox> hdlr;
  std::optional<EditListBox> elst;
};

Status ReadInitTrack(std::span<const uint8_t> trak, InitTrack* track, std::string* problem) {
  const uint32_t kTrak = MxFourCC("trak"), kMdia = MxFourCC("mdia"), kEdts = MxFourCC("edts");
  if (Status err = ParseChild(trak, kTrak, MxFourCC("tkhd"), &track->tkhd, problem)) return err;
  std::optional<std::span<const uint8_t>> mdia, edts;
  if (Status err = FindChild(trak, kTrak, kMdia, &mdia, problem)) return err;
  if (Status err = FindChild(trak, kTrak, kEdts, &edts, problem)) return err;
  if (mdia) {
    if (Status err = ParseChild(*mdia, kMdia, MxFourCC("mdhd"), &track->mdhd, problem)) return err;
    if (Status err = ParseChild(*mdia, kMdia, MxFourCC("hdlr"), &track->hdlr, problem)) return err;
  }
  if (edts) {
    if (Status err = ParseChild(*edts, kEdts, MxFourCC("elst"), &track->elst, problem)) return err;
  }
  return kNoErr;
}

}  // namespace

Status ReadFragmentInitTrack(MxByteStream* init, FragmentStart* start, std::string* problem) {
  const uint32_t kMoov = MxFourCC("moov"), kVideo = MxFourCC("vide");
  std::vector<uint8_t> moov;
  if (Status err = ReadTopLevelBox(init, kMoov, MxFourCC("moof"), &moov, problem)) return err;
  std::optional<InitTrack> chosen;
  Status err = ForEachChild(
      moov, kMoov, problem, [&](uint32_t type, std::span<const uint8_t> body) -> Status {
        if (type != MxFourCC("trak")) return kNoErr;
        InitTrack track;
        if (Status trackErr = ReadInitTrack(body, &track, problem)) return trackErr;
        const bool video = track.hdlr && track.hdlr->handlerType == kVideo;
        const bool chosenIsVideo = chosen && chosen->hdlr && chosen->hdlr->handlerType == kVideo;
        if (!chosen || (video && !chosenIsVideo)) chosen = track;
        return kNoErr;
      });
  if (err) return err;
  if (!chosen) return Malformed(problem, "the movie box has no track");
  if (!chosen->tkhd) return Malformed(problem, "the track has no 'tkhd'");
  if (!chosen->mdhd) return Malformed(problem, "the track has no 'mdhd'");
  start->trackID = chosen->tkhd->trackID;
  start->handlerType = chosen->hdlr ? chosen->hdlr->handlerType : 0;
  start->timescale = chosen->mdhd->timescale;
  start->editMediaTime = 0;
  if (chosen->elst && chosen->elst->entries.count > 0) {
    const int64_t mediaTime = chosen->elst->At(0).mediaTime;
    if (mediaTime != -1) start->editMediaTime = mediaTime;
  }
  return kNoErr;
}

Status ReadFirstFragmentTiming(MxByteStream* segment, FragmentStart* start, std::string* problem) {
  const uint32_t kMoof = MxFourCC("moof"), kTraf = MxFourCC("traf"), kTrun = MxFourCC("trun");
  std::vector<uint8_t> moof;
  if (Status err = ReadTopLevelBox(segment, kMoof, MxFourCC("mdat"), &moof, problem)) return err;
  bool found = false;
  Status err = ForEachChild(
      moof, kMoof, problem, [&](uint32_t type, std::span<const uint8_t> traf) -> Status {
        if (type != kTraf || found) return kNoErr;
        std::optional<TrackFragmentHeaderBox> tfhd;
        if (Status e = ParseChild(traf, kTraf, MxFourCC("tfhd"), &tfhd, problem)) return e;
        if (!tfhd) return Malformed(problem, "a track fragment has no 'tfhd'");
        if (tfhd->trackID != start->trackID) return kNoErr;
        found = true;
        std::optional<TrackFragmentDecodeTimeBox> tfdt;
        if (Status e = ParseChild(traf, kTraf, MxFourCC("tfdt"), &tfdt, problem)) return e;
        if (!tfdt)
          return Malformed(problem, "the track fragment has no 'tfdt', so its start is unknown");
        start->decodeTime = tfdt->baseMediaDecodeTime;
        // The first sample is the first of the first run that has any.
        bool sampled = false;
        Status runErr = ForEachChild(
            traf, kTraf, problem, [&](uint32_t t, std::span<const uint8_t> b) -> Status {
              if (t != kTrun || sampled) return kNoErr;
              TrackRunBox run;
              if (run.Parse(b) != kNoErr)
                return Malformed(problem, "'trun' is broken or claims more samples than it holds");
              if (run.sampleCount == 0) return kNoErr;
              sampled = true;
              start->compositionOffset = run.firstCompositionOffset;
              return kNoErr;
            });
        if (runErr) return runErr;
        if (!sampled) return Malformed(problem, "the track fragment has no samples");
        return kNoErr;
      });
  if (err) return err;
  if (!found)
    return Malformed(
        problem, "the first movie fragment has nothing of track " + std::to_string(start->trackID));
  return kNoErr;
}

Status FragmentStartIn90kHz(const FragmentStart& start, int64_t* out) {
  if (start.timescale == 0 || start.decodeTime > uint64_t(INT64_MAX))
    return QorSignalErrorAt(kErrBadArgument);
  int64_t units;
  if (__builtin_add_overflow(int64_t(start.decodeTime), start.compositionOffset, &units) ||
      __builtin_sub_overflow(units, start.editMediaTime, &units) || units == INT64_MIN)
    return QorSignalErrorAt(kErrBadArgument);
  // Whole seconds and the remainder apart, so that nothing but the result can overflow.
  const bool negative = units < 0;
  const uint64_t magnitude = uint64_t(negative ? -units : units);
  const uint64_t seconds = magnitude / start.timescale, rest = magnitude % start.timescale;
  const uint64_t restTicks = (rest * 90000 * 2 + start.timescale) / (uint64_t(start.timescale) * 2);
  if (seconds > (uint64_t(INT64_MAX) - restTicks) / 90000) return QorSignalErrorAt(kErrBadArgument);
  const int64_t ticks = int64_t(seconds * 90000 + restTicks);
  *out = negative ? -ticks : ticks;
  return kNoErr;
}
