#include "media/formats/movie/fragment_boxes.h"

#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"

namespace {

Status Malformed() {
  return QorSignalErrorAt(kMovieErrMalformed);
}

bool ReadVersionAndFlags(MxByteCursor& c, uint8_t* version, uint32_t* flags) {
  return c.ReadU8(version) && c.ReadU24(flags);
}

// Track run flags.
constexpr uint32_t kRunDataOffset = 0x000001;
constexpr uint32_t kRunFirstSampleFlags = 0x000004;
constexpr uint32_t kRunSampleDuration = 0x000100;
constexpr uint32_t kRunSampleSize = 0x000200;
constexpr uint32_t kRunSampleFlags = 0x000400;
constexpr uint32_t kRunSampleCompositionOffset = 0x000800;

}  // namespace

Status TrackFragmentHeaderBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags;
  if (!ReadVersionAndFlags(c, &version, &flags) || !c.ReadU32(&trackID)) return Malformed();
  return kNoErr;
}

Status TrackFragmentDecodeTimeBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags;
  if (!ReadVersionAndFlags(c, &version, &flags) || version > 1 ||
      !c.ReadU32or64(version == 1, &baseMediaDecodeTime))
    return Malformed();
  return kNoErr;
}

Status TrackRunBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags, unused;
  if (!ReadVersionAndFlags(c, &version, &flags) || !c.ReadU32(&sampleCount)) return Malformed();
  if ((flags & kRunDataOffset) && !c.ReadU32(&unused)) return Malformed();
  if ((flags & kRunFirstSampleFlags) && !c.ReadU32(&unused)) return Malformed();
  // Every per-sample field is 32 bits wide; the composition offset comes last.
  uint32_t fieldsBefore = 0;
  for (uint32_t field : {kRunSampleDuration, kRunSampleSize, kRunSampleFlags})
    if (flags & field) ++fieldsBefore;
  const bool hasOffsets = (flags & kRunSampleCompositionOffset) != 0;
  const uint64_t recordSize = 4 * (uint64_t(fieldsBefore) + (hasOffsets ? 1 : 0));
  if (uint64_t(sampleCount) * recordSize > c.Remaining()) return Malformed();
  firstCompositionOffset = 0;
  if (sampleCount == 0 || !hasOffsets) return kNoErr;
  uint32_t raw;
  if (!c.Skip(4 * uint64_t(fieldsBefore)) || !c.ReadU32(&raw)) return Malformed();
  firstCompositionOffset = version == 0 ? int64_t(raw) : int64_t(int32_t(raw));
  return kNoErr;
}
