// CAF: 'caff' version 1, then chunks with 64-bit sizes: 'desc' (sample rate as a 64-bit float,
// packet layout), 'pakt' (the exact count of valid frames) and 'data' (whose size may be -1,
// meaning "to the end of the file").
#include <cmath>
#include <cstring>

#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"
#include "media/formats/audiofile/audio_file_probe.h"

namespace {

constexpr double kMaxSampleRate = 1e7;

double DoubleFromBits(uint64_t bits) {
  double value;
  memcpy(&value, &bits, sizeof value);
  return value;
}

}  // namespace

Status CAFFileProbe(ProbeReader& reader, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = ContainerProbe{};
  std::vector<uint8_t> bytes;
  Status status = reader.ReadAt(0, 8, &bytes);
  if (status != kNoErr) return status;
  MxByteCursor head(bytes.data(), bytes.size());
  uint32_t magic = 0;
  uint16_t version = 0;
  if (!head.ReadU32(&magic) || magic != MxFourCC("caff") || !head.ReadU16(&version) || version != 1)
    return kMxErrFormatNotRecognised;

  bool haveDescription = false, havePackets = false, haveData = false;
  double rate = 0;
  uint32_t bytesPerPacket = 0, framesPerPacket = 0;
  uint64_t validFrames = 0, dataSize = 0;
  int64_t at = 8;
  for (int i = 0; i < kMaxAudioFileChunks && at < reader.Length(); i++) {
    status = reader.ReadAt(at, 12, &bytes);
    if (status != kNoErr) return status;
    MxByteCursor chunk(bytes.data(), bytes.size());
    uint32_t tag = 0;
    uint64_t size = 0;
    if (!chunk.ReadU32(&tag) || !chunk.ReadU64(&size)) break;
    const int64_t available = reader.Length() - (at + 12);
    const bool toTheEnd = size == ~uint64_t{0} || size > static_cast<uint64_t>(available);
    if (tag == MxFourCC("data")) {
      haveData = true;
      // The data starts with a 4-byte edit count.
      const uint64_t whole = toTheEnd ? static_cast<uint64_t>(available) : size;
      dataSize = whole >= 4 ? whole - 4 : 0;
    } else if (tag == MxFourCC("desc") || tag == MxFourCC("pakt")) {
      status = reader.ReadAt(at + 12, 32, &bytes);
      if (status != kNoErr) return status;
      MxByteCursor body(bytes.data(), bytes.size());
      uint64_t rateBits = 0, packets = 0;
      uint32_t formatID = 0, flags = 0;
      if (tag == MxFourCC("desc")) {
        haveDescription = body.ReadU64(&rateBits) && body.ReadU32(&formatID) &&
                          body.ReadU32(&flags) && body.ReadU32(&bytesPerPacket) &&
                          body.ReadU32(&framesPerPacket);
        rate = DoubleFromBits(rateBits);
      } else {
        havePackets = body.ReadU64(&packets) && body.ReadU64(&validFrames);
      }
    }
    if (toTheEnd) break;
    at += 12 + static_cast<int64_t>(size);
  }
  if (!haveDescription || !haveData || !(rate > 0 && rate <= kMaxSampleRate))
    return QorSignalErrorAt(kMxErrFormatDamaged);
  uint64_t frames = 0;
  if (havePackets) {
    frames = validFrames;
  } else if (bytesPerPacket != 0 && framesPerPacket != 0) {
    frames = dataSize / bytesPerPacket * framesPerPacket;
  } else {
    return QorSignalErrorAt(kMxErrFormatDamaged);  // variable packets need the packet table
  }
  out->tracks = {{kProbeMediaType_Sound, 1}};
  out->duration = rate == std::floor(rate)
                      ? ProbeDurationFromCount(frames, 1, static_cast<uint64_t>(rate))
                      : ProbeDurationFromSeconds(static_cast<double>(frames) / rate);
  out->durationIsExact = true;
  return kNoErr;
}
