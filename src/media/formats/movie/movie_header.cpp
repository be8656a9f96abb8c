#include "media/formats/movie/movie_header.h"

#include <algorithm>
#include <new>

#include "media/core/error_signal.h"
#include "media/formats/movie/compressed_movie_box.h"

namespace {

Status Malformed(QorErrorReason reason, std::initializer_list<uint64_t> numbers = {}) {
  return QorSignalErrorBecause(kMovieErrMalformed, reason, numbers);
}

struct ParseState {
  MovieHeader* movie = nullptr;
  MovieTrack* track = nullptr;
  bool inflated = false;  // walking the movie box of a compressed movie box
  // The bytes being walked start at `base`, which is byte `baseOffset` of the file (or of the
  // inflated movie box): a failure is placed in the box it was found in.
  const uint8_t* base = nullptr;
  int64_t baseOffset = 0;
  int64_t boxOffset = 0;  // the first byte of the box whose handler runs

  int64_t OffsetOf(const uint8_t* p) const { return baseOffset + (p - base); }
};

using BoxHandler = Status (*)(ParseState& state, std::span<const uint8_t> payload);
struct BoxHandlerEntry {
  uint32_t type;
  BoxHandler handler;
};

// Walks the child boxes of `payload`, handing each to its handler from `table`; boxes of other
// types ('free', 'skip', 'wide', unknown ones) are skipped. Nesting needs no depth count: each
// table names only boxes that sit deeper than its own (movie, track, media, media information,
// sample table), so no box type is walked twice on one path, and a compressed movie box is
// taken once; the deepest walk is the sample table of a compressed movie, whatever the file.
Status WalkChildren(ParseState& state, std::span<const uint8_t> payload,
                    std::span<const BoxHandlerEntry> table) {
  MxByteCursor c(payload);
  // A trailing zero-filled word (a 32-bit terminator some writers put after the last child) ends
  // the list.
  while (c.Remaining() >= 8) {
    const uint8_t* boxStart = c.Current();
    BoxHeader h;
    if (Status err = ParseBoxHeader(c, c.Remaining(), &h)) return err;
    std::span<const uint8_t> body;
    if (!c.Take(size_t(h.size - h.headerSize), &body)) return Malformed("a box is cut short");
    for (const BoxHandlerEntry& entry : table) {
      if (entry.type != h.type) continue;
      state.boxOffset = state.OffsetOf(boxStart);
      if (Status err = entry.handler(state, body)) {
        QorErrorOriginPlaceInBox(err, h.type, state.OffsetOf(boxStart), state.inflated);
        return err;
      }
      break;
    }
  }
  return kNoErr;
}

// Parses a box that may appear once; a repeated box after the first is ignored.
template <class Box>
Status ParseOnce(std::optional<Box>& slot, std::span<const uint8_t> payload) {
  if (slot) return kNoErr;
  Box box;
  if (Status err = box.Parse(payload)) return err;
  slot = std::move(box);
  return kNoErr;
}

// An optional text box's bytes, up to the first NUL when `stopAtNul`.
void TakeText(std::optional<std::string>& slot, std::span<const uint8_t> payload, bool stopAtNul) {
  if (slot) return;
  size_t n = payload.size();
  if (stopAtNul) {
    n = 0;
    while (n < payload.size() && payload[n] != 0) ++n;
  }
  slot.emplace(reinterpret_cast<const char*>(payload.data()), n);
}

constexpr BoxHandlerEntry kTrackReferenceChildren[] = {
    {MxFourCC("forc"),
     [](ParseState& s, std::span<const uint8_t> p) -> Status {
       TrackReferenceTypeBox box;
       if (Status err = box.Parse(p)) return err;
       std::vector<uint32_t>& ids = s.track->forcedTrackIDs;
       if (ids.empty())
         ids = std::move(box.trackIDs);
       else
         ids.insert(ids.end(), box.trackIDs.begin(), box.trackIDs.end());
       return kNoErr;
     }},
};

constexpr BoxHandlerEntry kEditChildren[] = {
    {MxFourCC("elst"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->editList, p); }},
};

constexpr BoxHandlerEntry kSampleTableChildren[] = {
    {MxFourCC("stsd"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->stsd, p); }},
    {MxFourCC("stts"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->stts, p); }},
    {MxFourCC("ctts"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->ctts, p); }},
    {MxFourCC("stsc"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->stsc, p); }},
    {MxFourCC("stsz"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->sizes, p); }},
    {MxFourCC("stz2"),
     [](ParseState& s, std::span<const uint8_t> p) -> Status {
       if (s.track->sizes) return kNoErr;
       SampleSizeBox box;
       if (Status err = box.ParseCompact(p)) return err;
       s.track->sizes = box;
       return kNoErr;
     }},
    {MxFourCC("stco"),
     [](ParseState& s, std::span<const uint8_t> p) -> Status {
       if (s.track->chunkOffsets) return kNoErr;
       ChunkOffsetBox box;
       if (Status err = box.Parse(p, false)) return err;
       s.track->chunkOffsets = box;
       return kNoErr;
     }},
    {MxFourCC("co64"),
     [](ParseState& s, std::span<const uint8_t> p) -> Status {
       if (s.track->chunkOffsets) return kNoErr;
       ChunkOffsetBox box;
       if (Status err = box.Parse(p, true)) return err;
       s.track->chunkOffsets = box;
       return kNoErr;
     }},
};

constexpr BoxHandlerEntry kMediaInformationChildren[] = {
    {MxFourCC("stbl"),
     [](ParseState& s, std::span<const uint8_t> p) {
       s.track->sampleTablePlace = {s.boxOffset, s.inflated};
       return WalkChildren(s, p, kSampleTableChildren);
     }},
};

constexpr BoxHandlerEntry kMediaChildren[] = {
    {MxFourCC("mdhd"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->mdhd, p); }},
    {MxFourCC("hdlr"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->hdlr, p); }},
    {MxFourCC("elng"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->elng, p); }},
    {MxFourCC("minf"),
     [](ParseState& s, std::span<const uint8_t> p) {
       return WalkChildren(s, p, kMediaInformationChildren);
     }},
};

constexpr BoxHandlerEntry kTrackUserDataChildren[] = {
    {MxFourCC("name"),
     [](ParseState& s, std::span<const uint8_t> p) -> Status {
       TakeText(s.track->name, p, false);
       return kNoErr;
     }},
    {MxFourCC("tagc"),
     [](ParseState& s, std::span<const uint8_t> p) -> Status {
       if (s.track->contentTags.size() >= kMaxContentTags) return kNoErr;
       std::optional<std::string> tag;
       TakeText(tag, p, true);
       s.track->contentTags.push_back(std::move(*tag));
       return kNoErr;
     }},
};

constexpr BoxHandlerEntry kTrackChildren[] = {
    {MxFourCC("tkhd"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.track->tkhd, p); }},
    {MxFourCC("tref"),
     [](ParseState& s, std::span<const uint8_t> p) {
       return WalkChildren(s, p, kTrackReferenceChildren);
     }},
    {MxFourCC("edts"),
     [](ParseState& s, std::span<const uint8_t> p) { return WalkChildren(s, p, kEditChildren); }},
    {MxFourCC("mdia"),
     [](ParseState& s, std::span<const uint8_t> p) { return WalkChildren(s, p, kMediaChildren); }},
    {MxFourCC("udta"),
     [](ParseState& s, std::span<const uint8_t> p) {
       return WalkChildren(s, p, kTrackUserDataChildren);
     }},
};

Status ParseTrack(ParseState& s, std::span<const uint8_t> payload) {
  s.movie->tracks.emplace_back();
  s.track = &s.movie->tracks.back();
  Status err = WalkChildren(s, payload, kTrackChildren);
  s.track = nullptr;
  if (err) return err;
  const MovieTrack& t = s.movie->tracks.back();
  if (!t.tkhd) return Malformed("the track has no 'tkhd' box");
  if (!t.mdhd) return Malformed("the track has no 'mdhd' box");
  if (!t.hdlr) return Malformed("the track has no 'hdlr' box");
  return kNoErr;
}

Status ParseCompressedMovie(ParseState& s, std::span<const uint8_t> payload);

constexpr BoxHandlerEntry kMovieChildren[] = {
    {MxFourCC("mvhd"),
     [](ParseState& s, std::span<const uint8_t> p) { return ParseOnce(s.movie->mvhd, p); }},
    {MxFourCC("trak"), ParseTrack},
    {MxFourCC("mvex"),
     [](ParseState&, std::span<const uint8_t>) {
       return QorSignalErrorBecause(kMovieErrFragmented, "the movie is fragmented");
     }},
    {MxFourCC("cmov"), ParseCompressedMovie},
};

Status ParseCompressedMovie(ParseState& s, std::span<const uint8_t> payload) {
  // A compressed movie box inside an inflated one is refused: it could nest without end.
  if (s.inflated || !s.movie->inflatedBytes.empty())
    return Malformed("a compressed movie box within a compressed movie box");
  std::vector<uint8_t> inflated;
  if (Status err = InflateCompressedMovieBox(payload, kMaxMovieHeaderBytes, &inflated)) return err;
  s.movie->inflatedBytes = std::move(inflated);
  MxByteCursor c(s.movie->inflatedBytes);
  BoxHeader h;
  if (Status err = ParseBoxHeader(c, c.Remaining(), &h)) return err;
  if (h.type != MxFourCC("moov") || h.size != s.movie->inflatedBytes.size())
    return Malformed("the inflated header is not one movie box");
  ParseState inner = s;
  inner.inflated = true;
  inner.base = s.movie->inflatedBytes.data();
  inner.baseOffset = 0;
  Status err = WalkChildren(inner, c.Rest(), kMovieChildren);
  if (err) QorErrorOriginPlaceInBox(err, MxFourCC("moov"), 0, true);
  return err;
}

Status ParseMovieChildren(MovieHeader* movie, int64_t payloadOffset) {
  ParseState state;
  state.movie = movie;
  state.base = movie->movieBytes.data();
  state.baseOffset = payloadOffset;
  if (Status err = WalkChildren(state, movie->movieBytes, kMovieChildren)) return err;
  if (!movie->mvhd) return Malformed("the movie has no 'mvhd' box");
  return kNoErr;
}

// Reads exactly `size` bytes at `offset`.
Status ReadExactly(MxByteStream* stream, int64_t offset, size_t size, uint8_t* destination) {
  size_t done = 0;
  Status err = MxByteStreamReadFully(stream, size, offset, destination, &done);
  if (err == kMxErrEndOfStream)
    return Malformed("the file ends at byte #, within the box", {uint64_t(offset) + done});
  return err;
}

}  // namespace

Status MovieHeaderParseMovieBox(std::vector<uint8_t> payload, std::unique_ptr<MovieHeader>* out,
                                int64_t payloadOffset) {
  auto movie = std::unique_ptr<MovieHeader>(new (std::nothrow) MovieHeader);
  if (!movie) return QorSignalErrorAt(kMxErrAllocationFailed);
  movie->movieBytes = std::move(payload);
  if (Status err = ParseMovieChildren(movie.get(), payloadOffset)) return err;
  *out = std::move(movie);
  return kNoErr;
}

Status MovieHeaderRead(MxByteStream* stream, std::unique_ptr<MovieHeader>* out,
                       int64_t* fileLength) {
  int64_t length = 0;
  if (Status err = stream->GetLength(0, &length)) return err;
  if (length < 0) return Malformed("the length of the file is not known");
  if (fileLength) *fileLength = length;

  std::vector<uint8_t> fileType;
  int64_t offset = 0;
  while (length - offset >= 8) {
    uint8_t raw[32];
    const size_t want = size_t(std::min<int64_t>(32, length - offset));
    if (Status err = ReadExactly(stream, offset, want, raw)) return err;
    MxByteCursor c(std::span<const uint8_t>(raw, want));
    BoxHeader h;
    if (Status err = ParseBoxHeader(c, uint64_t(length - offset), &h)) {
      QorErrorOriginPlaceInBox(err, FourCC(MxLoadBigEndian(raw + 4, 4)), offset, false);
      return err;
    }
    const int64_t bodyOffset = offset + h.headerSize;
    const uint64_t bodySize = h.size - h.headerSize;

    if (h.type == MxFourCC("moof") || h.type == MxFourCC("mfra")) {
      const Status err = QorSignalErrorBecause(kMovieErrFragmented, "the movie is fragmented");
      QorErrorOriginPlaceInBox(err, h.type, offset, false);
      return err;
    }
    if (h.type == MxFourCC("ftyp") && fileType.empty() && bodySize <= 4096) {
      fileType.resize(size_t(bodySize));
      if (Status err = ReadExactly(stream, bodyOffset, fileType.size(), fileType.data()))
        return err;
    } else if (h.type == MxFourCC("moov")) {
      if (bodySize > kMaxMovieHeaderBytes) {
        const Status err =
            QorSignalErrorBecause(kMovieErrUnsupported, "a movie box of # bytes is over #",
                                  {bodySize, kMaxMovieHeaderBytes});
        QorErrorOriginPlaceInBox(err, h.type, offset, false);
        return err;
      }
      std::vector<uint8_t> body;
      try {
        body.resize(size_t(bodySize));
      } catch (const std::bad_alloc&) {
        return QorSignalErrorAt(kMxErrAllocationFailed);
      }
      std::unique_ptr<MovieHeader> movie;
      Status err = ReadExactly(stream, bodyOffset, body.size(), body.data());
      if (err == kNoErr) err = MovieHeaderParseMovieBox(std::move(body), &movie, bodyOffset);
      if (err) {
        QorErrorOriginPlaceInBox(err, h.type, offset, false);
        return err;
      }
      if (!fileType.empty()) {
        movie->fileTypeBytes = std::move(fileType);
        FileTypeBox ftyp;
        if (ftyp.Parse(movie->fileTypeBytes) == kNoErr) movie->ftyp = ftyp;
      }
      *out = std::move(movie);
      return kNoErr;
    }
    offset += int64_t(h.size);
  }
  return Malformed("the file has no movie box");
}
