// AIFF and AIFC: FORM 'AIFF' or 'AIFC' with a 'COMM' chunk that states the number of sample
// frames and the sample rate (an 80-bit extended float). Big-endian throughout.
#include <algorithm>
#include <cmath>

#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"
#include "media/formats/audiofile/audio_file_probe.h"

namespace {

// The 80-bit extended format: sign and 15-bit exponent, then a 64-bit mantissa whose top bit is
// the integer bit.
double ExtendedToDouble(uint16_t signAndExponent, uint64_t mantissa) {
  const int exponent = signAndExponent & 0x7FFF;
  if (exponent == 0x7FFF) return NAN;
  const double magnitude = std::ldexp(static_cast<double>(mantissa), exponent - 16383 - 63);
  return (signAndExponent & 0x8000) ? -magnitude : magnitude;
}

// The highest sample rate believed; it keeps rates within the time scale's range.
constexpr double kMaxSampleRate = 1e7;

}  // namespace

Status AIFFFileProbe(ProbeReader& reader, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = ContainerProbe{};
  std::vector<uint8_t> bytes;
  Status status = reader.ReadAt(0, 12, &bytes);
  if (status != kNoErr) return status;
  MxByteCursor head(bytes.data(), bytes.size());
  uint32_t form = 0, formSize = 0, type = 0;
  if (!head.ReadU32(&form) || !head.ReadU32(&formSize) || !head.ReadU32(&type) ||
      form != MxFourCC("FORM") || (type != MxFourCC("AIFF") && type != MxFourCC("AIFC")))
    return kMxErrFormatNotRecognised;

  bool haveCommon = false, haveSound = false;
  uint32_t frames = 0, compression = MxFourCC("NONE");
  uint16_t channels = 0, bits = 0;
  double rate = 0;
  uint64_t soundBytes = 0;
  int64_t at = 12;
  for (int i = 0; i < kMaxAudioFileChunks && !(haveCommon && haveSound); i++) {
    status = reader.ReadAt(at, 8, &bytes);
    if (status != kNoErr) return status;
    MxByteCursor chunk(bytes.data(), bytes.size());
    uint32_t tag = 0, size = 0;
    if (!chunk.ReadU32(&tag) || !chunk.ReadU32(&size)) break;
    if (tag == MxFourCC("COMM")) {
      status = reader.ReadAt(at + 8, 22, &bytes);
      if (status != kNoErr) return status;
      MxByteCursor body(bytes.data(), bytes.size());
      uint16_t exponent = 0;
      uint64_t mantissa = 0;
      if (!body.ReadU16(&channels) || !body.ReadU32(&frames) || !body.ReadU16(&bits) ||
          !body.ReadU16(&exponent) || !body.ReadU64(&mantissa))
        return QorSignalErrorAt(kMxErrFormatDamaged);
      if (type == MxFourCC("AIFC") && !body.ReadU32(&compression))
        return QorSignalErrorAt(kMxErrFormatDamaged);
      rate = ExtendedToDouble(exponent, mantissa);
      if (!(rate > 0 && rate <= kMaxSampleRate)) return QorSignalErrorAt(kMxErrFormatDamaged);
      haveCommon = true;
    } else if (tag == MxFourCC("SSND")) {
      // The sound data starts with an offset and a block size.
      const int64_t available = reader.Length() - (at + 16);
      soundBytes = available <= 0 ? 0
                                  : std::min<uint64_t>(static_cast<uint64_t>(available),
                                                       size >= 8 ? size - 8 : 0);
      haveSound = true;
    }
    at += 8 + int64_t{size} + (size & 1);
    if (at >= reader.Length()) break;
  }
  if (!haveCommon) return QorSignalErrorAt(kMxErrFormatDamaged);
  // IMA ADPCM counts packets of 64 sample frames.
  uint64_t sampleFrames = uint64_t{frames} * (compression == MxFourCC("ima4") ? 64 : 1);
  // Uncompressed sound cut short keeps the frames it has.
  const bool uncompressed = compression == MxFourCC("NONE") || compression == MxFourCC("sowt") ||
                            compression == MxFourCC("twos") || compression == MxFourCC("raw ") ||
                            compression == MxFourCC("fl32") || compression == MxFourCC("fl64") ||
                            compression == MxFourCC("in24") || compression == MxFourCC("in32");
  const uint64_t frameBytes = uint64_t{channels} * ((bits + 7u) / 8u);
  if (uncompressed && frameBytes != 0)
    sampleFrames = std::min(sampleFrames, haveSound ? soundBytes / frameBytes : 0);
  out->tracks = {{kProbeMediaType_Sound, 1}};
  out->duration = rate == std::floor(rate)
                      ? ProbeDurationFromCount(sampleFrames, 1, static_cast<uint64_t>(rate))
                      : ProbeDurationFromSeconds(static_cast<double>(sampleFrames) / rate);
  out->durationIsExact = true;
  return kNoErr;
}
