#include "media/formats/avi/avi_probe.h"

#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"

namespace {

// The header list of real files is a few kilobytes; more than this is not believed.
constexpr size_t kMaxHeaderList = 1u << 20;
// Chunks skipped at the top level before the header list is given up on.
constexpr int kMaxLeadingChunks = 16;

constexpr FourCC kRIFF = MxFourCC("RIFF");
constexpr FourCC kLIST = MxFourCC("LIST");

// Four-character codes are stored in file order, which reads as big-endian.
bool ReadTag(MxByteCursor& cursor, FourCC* tag) {
  return cursor.ReadU32(tag);
}

struct StreamHeader {
  FourCC type = 0;
  uint32_t scale = 0, rate = 0, start = 0, length = 0;
};

bool ParseStreamHeader(MxByteCursor body, StreamHeader* out) {
  return ReadTag(body, &out->type) && body.Skip(4 + 4 + 2 + 2 + 4) && body.ReadU32LE(&out->scale) &&
         body.ReadU32LE(&out->rate) && body.ReadU32LE(&out->start) && body.ReadU32LE(&out->length);
}

FourCC MediaTypeOfStream(FourCC type) {
  if (type == MxFourCC("vids")) return kProbeMediaType_Video;
  if (type == MxFourCC("auds")) return kProbeMediaType_Sound;
  if (type == MxFourCC("txts")) return kProbeMediaType_Text;
  if (type == MxFourCC("mids")) return kProbeMediaType_Music;
  return 0;
}

// Walks the chunks of one list; `visit` gets each chunk's tag (for a nested list, its list
// type with `isList` set) and body.
template <class Visit>
bool WalkChunks(MxByteCursor list, Visit visit) {
  FourCC tag = 0;
  uint32_t size = 0;
  while (list.Remaining() >= 8) {
    if (!ReadTag(list, &tag) || !list.ReadU32LE(&size)) return false;
    MxByteCursor body(nullptr, 0);
    // A chunk cut short by the end of the header list is taken as far as it goes.
    if (!list.Sub(size <= list.Remaining() ? size : list.Remaining(), &body)) return false;
    if (size & 1) (void)list.Skip(1);
    if (tag == kLIST) {
      FourCC type = 0;
      if (!ReadTag(body, &type)) continue;
      if (!visit(type, true, body)) return false;
    } else if (!visit(tag, false, body)) {
      return false;
    }
  }
  return true;
}

}  // namespace

Status AVIProbe(ProbeReader& reader, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = ContainerProbe{};
  std::vector<uint8_t> bytes;
  Status status = reader.ReadAt(0, 12, &bytes);
  if (status != kNoErr) return status;
  MxByteCursor riff(bytes.data(), bytes.size());
  FourCC tag = 0, form = 0;
  uint32_t riffSize = 0;
  if (!ReadTag(riff, &tag) || tag != kRIFF || !riff.ReadU32LE(&riffSize) || !ReadTag(riff, &form) ||
      form != MxFourCC("AVI "))
    return QorSignalErrorAt(kMxErrFormatNotRecognised);

  // Find the header list among the first top-level chunks (it normally comes first).
  int64_t at = 12;
  std::vector<uint8_t> header;
  for (int i = 0; i < kMaxLeadingChunks && header.empty(); i++) {
    status = reader.ReadAt(at, 12, &bytes);
    if (status != kNoErr) return status;
    MxByteCursor chunk(bytes.data(), bytes.size());
    uint32_t size = 0;
    FourCC type = 0;
    if (!ReadTag(chunk, &tag) || !chunk.ReadU32LE(&size)) break;
    if (tag == kLIST && ReadTag(chunk, &type) && type == MxFourCC("hdrl")) {
      if (size < 4) break;
      if (size - 4 > kMaxHeaderList) return QorSignalErrorAt(kMxErrFormatDamaged);
      status = reader.ReadAt(at + 12, size - 4, &header);
      if (status != kNoErr) return status;
      break;
    }
    at += 8 + int64_t{size} + (size & 1);
  }
  if (header.empty()) return QorSignalErrorAt(kMxErrFormatDamaged);

  bool haveMainHeader = false;
  uint32_t microsecondsPerFrame = 0, totalFrames = 0;
  uint32_t streamNumber = 0;
  double longest = -1;
  MxTime duration = kMxTimeInvalid;
  const bool walked =
      WalkChunks(MxByteCursor(header.data(), header.size()),
                 [&](FourCC chunkTag, bool isList, MxByteCursor body) {
                   if (!isList && chunkTag == MxFourCC("avih")) {
                     haveMainHeader = body.ReadU32LE(&microsecondsPerFrame) && body.Skip(12) &&
                                      body.ReadU32LE(&totalFrames);
                     return true;
                   }
                   if (!isList || chunkTag != MxFourCC("strl")) return true;
                   streamNumber++;
                   StreamHeader stream;
                   bool haveStreamHeader = false;
                   (void)WalkChunks(body, [&](FourCC inner, bool innerList, MxByteCursor b) {
                     if (!innerList && inner == MxFourCC("strh") && !haveStreamHeader)
                       haveStreamHeader = ParseStreamHeader(b, &stream);
                     return true;
                   });
                   if (!haveStreamHeader) return true;
                   const FourCC mediaType = MediaTypeOfStream(stream.type);
                   if (mediaType != 0) out->tracks.push_back({mediaType, streamNumber});
                   if (stream.rate == 0 || stream.scale == 0) return true;
                   const uint64_t ticks = uint64_t{stream.start} + stream.length;
                   const double seconds = static_cast<double>(ticks) * stream.scale / stream.rate;
                   if (seconds > longest) {
                     longest = seconds;
                     duration = ProbeDurationFromCount(ticks, stream.scale, stream.rate);
                   }
                   return true;
                 });
  if (!walked || !haveMainHeader) return QorSignalErrorAt(kMxErrFormatDamaged);
  if (!MxTimeIsValid(duration) && microsecondsPerFrame != 0)
    duration = ProbeDurationFromCount(totalFrames, microsecondsPerFrame, 1000000);
  out->duration = duration;
  out->durationIsExact = MxTimeIsValid(duration);
  return kNoErr;
}
