// WAV: RIFF 'WAVE' (or RF64 'WAVE', whose 64-bit sizes sit in a 'ds64' chunk) with a 'fmt '
// chunk and a 'data' chunk, in any order among other chunks.
#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"
#include "media/formats/audiofile/audio_file_probe.h"

namespace {

constexpr uint32_t kSizeInDataSize64 = 0xFFFFFFFF;

bool IsLinearFormat(uint16_t tag) {
  // Integer PCM, float, A-law, mu-law and the extensible form.
  return tag == 1 || tag == 3 || tag == 6 || tag == 7 || tag == 0xFFFE;
}

}  // namespace

Status WaveFileProbe(ProbeReader& reader, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = ContainerProbe{};
  std::vector<uint8_t> bytes;
  Status status = reader.ReadAt(0, 12, &bytes);
  if (status != kNoErr) return status;
  MxByteCursor head(bytes.data(), bytes.size());
  uint32_t riff = 0, riffSize = 0, wave = 0;
  if (!head.ReadU32(&riff) || !head.ReadU32LE(&riffSize) || !head.ReadU32(&wave) ||
      (riff != MxFourCC("RIFF") && riff != MxFourCC("RF64")) || wave != MxFourCC("WAVE"))
    return kMxErrFormatNotRecognised;

  bool haveFormat = false, haveData = false, haveFact = false;
  uint16_t formatTag = 0, channels = 0, blockAlign = 0;
  uint32_t sampleRate = 0, byteRate = 0, factFrames = 0;
  uint64_t dataSize64 = 0, dataSize = 0;
  int64_t at = 12;
  for (int i = 0; i < kMaxAudioFileChunks && !(haveFormat && haveData); i++) {
    status = reader.ReadAt(at, 8, &bytes);
    if (status != kNoErr) return status;
    MxByteCursor chunk(bytes.data(), bytes.size());
    uint32_t tag = 0, size32 = 0;
    if (!chunk.ReadU32(&tag) || !chunk.ReadU32LE(&size32)) break;
    uint64_t size = size32;
    if (tag == MxFourCC("data")) {
      haveData = true;
      dataSize = size32 == kSizeInDataSize64 && riff == MxFourCC("RF64") ? dataSize64 : size;
      // A file cut short keeps the audio it has.
      const int64_t available = reader.Length() - (at + 8);
      if (available < 0 || dataSize > static_cast<uint64_t>(available))
        dataSize = available < 0 ? 0 : static_cast<uint64_t>(available);
      size = dataSize;
    } else if (tag == MxFourCC("fmt ") || tag == MxFourCC("fact") || tag == MxFourCC("ds64")) {
      status = reader.ReadAt(at + 8, size32 < 64 ? size32 : 64, &bytes);
      if (status != kNoErr) return status;
      MxByteCursor body(bytes.data(), bytes.size());
      if (tag == MxFourCC("fmt ")) {
        haveFormat = body.ReadU16LE(&formatTag) && body.ReadU16LE(&channels) &&
                     body.ReadU32LE(&sampleRate) && body.ReadU32LE(&byteRate) &&
                     body.ReadU16LE(&blockAlign);
      } else if (tag == MxFourCC("fact")) {
        haveFact = body.ReadU32LE(&factFrames);
      } else if (!body.Skip(8) || !body.ReadU64LE(&dataSize64)) {
        return QorSignalErrorAt(kMxErrFormatDamaged);
      }
    }
    at += 8 + static_cast<int64_t>(size) + static_cast<int64_t>(size & 1);
    if (at < 0 || at >= reader.Length()) break;
  }
  if (!haveFormat || !haveData || sampleRate == 0 || blockAlign == 0)
    return QorSignalErrorAt(kMxErrFormatDamaged);

  out->tracks = {{kProbeMediaType_Sound, 1}};
  if (IsLinearFormat(formatTag)) {
    out->duration = ProbeDurationFromCount(dataSize / blockAlign, 1, sampleRate);
    out->durationIsExact = true;
  } else if (haveFact) {
    out->duration = ProbeDurationFromCount(factFrames, 1, sampleRate);
    out->durationIsExact = true;
  } else if (byteRate != 0) {
    out->duration = ProbeDurationFromSeconds(static_cast<double>(dataSize) / byteRate);
  }
  return kNoErr;
}
