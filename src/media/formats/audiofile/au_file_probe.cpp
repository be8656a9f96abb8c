// AU: '.snd', then the data offset, data size (all ones when unknown), encoding, sample rate and
// channel count, big-endian. The data runs to the end of the file when its size is unknown.
#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"
#include "media/formats/audiofile/audio_file_probe.h"

namespace {

constexpr uint32_t kUnknownSize = 0xFFFFFFFF;

// Bytes per sample of the encodings with a fixed sample size; zero for the others.
uint32_t BytesPerSample(uint32_t encoding) {
  switch (encoding) {
    case 1:   // 8-bit mu-law
    case 2:   // 8-bit linear
    case 27:  // 8-bit A-law
      return 1;
    case 3:  // 16-bit linear
      return 2;
    case 4:  // 24-bit linear
      return 3;
    case 5:  // 32-bit linear
    case 6:  // 32-bit float
      return 4;
    case 7:  // 64-bit float
      return 8;
    default:
      return 0;
  }
}

}  // namespace

Status AUFileProbe(ProbeReader& reader, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = ContainerProbe{};
  std::vector<uint8_t> bytes;
  Status status = reader.ReadAt(0, 24, &bytes);
  if (status != kNoErr) return status;
  MxByteCursor head(bytes.data(), bytes.size());
  uint32_t magic = 0, dataOffset = 0, dataSize = 0, encoding = 0, rate = 0, channels = 0;
  if (!head.ReadU32(&magic) || magic != MxFourCC(".snd")) return kMxErrFormatNotRecognised;
  if (!head.ReadU32(&dataOffset) || !head.ReadU32(&dataSize) || !head.ReadU32(&encoding) ||
      !head.ReadU32(&rate) || !head.ReadU32(&channels) || dataOffset < 24 || rate == 0 ||
      channels == 0 || BytesPerSample(encoding) == 0)
    return QorSignalErrorAt(kMxErrFormatDamaged);
  const int64_t available = reader.Length() - int64_t{dataOffset};
  uint64_t size = available > 0 ? static_cast<uint64_t>(available) : 0;
  if (dataSize != kUnknownSize && dataSize < size) size = dataSize;
  out->tracks = {{kProbeMediaType_Sound, 1}};
  out->duration =
      ProbeDurationFromCount(size / (uint64_t{BytesPerSample(encoding)} * channels), 1, rate);
  out->durationIsExact = true;
  return kNoErr;
}
