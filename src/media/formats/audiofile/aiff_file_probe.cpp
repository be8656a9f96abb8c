// AIFF and AIFC: FORM 'AIFF' or 'AIFC' with a 'COMM' chunk that states the number of sample
// frames and the sample rate (an 80-bit extended float). Big-endian throughout.
#include <cmath>

#include "media/core/error_signal.h"
#include "media/formats/audiofile/audio_file_probe.h"
#include "media/formats/byte_cursor.h"

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

OSStatus AIFFFileProbe(ProbeReader& reader, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = ContainerProbe{};
  std::vector<uint8_t> bytes;
  OSStatus status = reader.ReadAt(0, 12, &bytes);
  if (status != kNoErr) return status;
  ByteCursor head(bytes.data(), bytes.size());
  uint32_t form = 0, formSize = 0, type = 0;
  if (!head.U32BE(&form) || !head.U32BE(&formSize) || !head.U32BE(&type) ||
      form != MxFourCharCode("FORM") ||
      (type != MxFourCharCode("AIFF") && type != MxFourCharCode("AIFC")))
    return kMxErrFormatNotRecognised;

  int64_t at = 12;
  for (int i = 0; i < kMaxAudioFileChunks; i++) {
    status = reader.ReadAt(at, 8, &bytes);
    if (status != kNoErr) return status;
    ByteCursor chunk(bytes.data(), bytes.size());
    uint32_t tag = 0, size = 0;
    if (!chunk.U32BE(&tag) || !chunk.U32BE(&size)) break;
    if (tag == MxFourCharCode("COMM")) {
      status = reader.ReadAt(at + 8, 22, &bytes);
      if (status != kNoErr) return status;
      ByteCursor body(bytes.data(), bytes.size());
      uint16_t channels = 0, bits = 0, exponent = 0;
      uint32_t frames = 0, compression = MxFourCharCode("NONE");
      uint64_t mantissa = 0;
      if (!body.U16BE(&channels) || !body.U32BE(&frames) || !body.U16BE(&bits) ||
          !body.U16BE(&exponent) || !body.U64BE(&mantissa))
        return QorSignalErrorAt(kMxErrFormatDamaged);
      if (type == MxFourCharCode("AIFC") && !body.U32BE(&compression))
        return QorSignalErrorAt(kMxErrFormatDamaged);
      const double rate = ExtendedToDouble(exponent, mantissa);
      if (!(rate > 0 && rate <= kMaxSampleRate)) return QorSignalErrorAt(kMxErrFormatDamaged);
      // IMA ADPCM counts packets of 64 sample frames.
      const uint64_t sampleFrames =
          uint64_t{frames} * (compression == MxFourCharCode("ima4") ? 64 : 1);
      out->tracks = {{kProbeMediaType_Sound, 1}};
      out->duration = rate == std::floor(rate)
                          ? ProbeDurationFromCount(sampleFrames, 1, static_cast<uint64_t>(rate))
                          : ProbeDurationFromSeconds(static_cast<double>(sampleFrames) / rate);
      out->durationIsExact = true;
      return kNoErr;
    }
    at += 8 + int64_t{size} + (size & 1);
    if (at >= reader.Length()) break;
  }
  return QorSignalErrorAt(kMxErrFormatDamaged);
}
