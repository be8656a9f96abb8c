#include "media/formats/mpeg/mpeg_stream_types.h"

#include "media/core/byte_cursor.h"
#include "media/formats/container_probe.h"

namespace {

// Private data streams say what they carry through descriptors: a registration of a format
// identifier, or a codec's own descriptor tag.
uint32_t PrivateDataMediaType(const uint8_t* descriptors, size_t length) {
  MxByteCursor cursor(descriptors, length);
  uint8_t tag = 0, size = 0;
  while (cursor.ReadU8(&tag) && cursor.ReadU8(&size)) {
    MxByteCursor body(nullptr, 0);
    if (!cursor.Sub(size, &body)) break;
    switch (tag) {
      case 0x6A:  // AC-3
      case 0x7A:  // enhanced AC-3
      case 0x7B:  // DTS
      case 0x7C:  // AAC
        return kProbeMediaType_Sound;
      case 0x05: {  // registration
        uint32_t format = 0;
        if (!body.ReadU32(&format)) break;
        if (format == MxFourCC("AC-3") || format == MxFourCC("EAC3") ||
            format == MxFourCC("DTS1") || format == MxFourCC("DTS2") ||
            format == MxFourCC("DTS3") || format == MxFourCC("Opus") || format == MxFourCC("BSSD"))
          return kProbeMediaType_Sound;
        if (format == MxFourCC("HEVC") || format == MxFourCC("VC-1")) return kProbeMediaType_Video;
        break;
      }
      default:
        break;
    }
  }
  return 0;
}

}  // namespace

uint32_t MPEGStreamTypeMediaType(uint8_t streamType, const uint8_t* descriptors, size_t length) {
  switch (streamType) {
    case 0x01:  // MPEG-1 video
    case 0x02:  // MPEG-2 video
    case 0x10:  // MPEG-4 visual
    case 0x1B:  // AVC
    case 0x20:  // AVC multiview sub-bitstream
    case 0x24:  // HEVC
    case 0x33:  // VVC
    case 0x42:  // AVS
    case 0xD1:  // Dirac
    case 0xEA:  // VC-1
      return kProbeMediaType_Video;
    case 0x03:  // MPEG-1 audio
    case 0x04:  // MPEG-2 audio
    case 0x0F:  // AAC in ADTS
    case 0x11:  // AAC in LATM
    case 0x1C:  // MPEG-4 audio without transport syntax
    case 0x80:  // linear PCM of packaged media
    case 0x81:  // AC-3
    case 0x82:  // DTS
    case 0x83:  // lossless
    case 0x84:  // enhanced AC-3 of packaged media
    case 0x85:  // DTS high resolution
    case 0x86:  // DTS master audio
    case 0x87:  // enhanced AC-3
    case 0xA1:  // secondary enhanced AC-3
    case 0xA2:  // secondary DTS
      return kProbeMediaType_Sound;
    case 0x06:  // private data
      return PrivateDataMediaType(descriptors, length);
    default:
      return 0;
  }
}

uint32_t MPEGStreamIdMediaType(uint8_t streamId, uint8_t substream) {
  if (streamId >= 0xE0 && streamId <= 0xEF) return kProbeMediaType_Video;
  if (streamId >= 0xC0 && streamId <= 0xDF) return kProbeMediaType_Sound;
  if (streamId == 0xBD) {
    // Private stream 1 carries AC-3 (0x80-0x87), DTS (0x88-0x8F) and linear PCM (0xA0-0xAF) in
    // numbered substreams; 0x20-0x3F are bitmap subpictures, which are not presented.
    if (substream >= 0x80 && substream <= 0x8F) return kProbeMediaType_Sound;
    if (substream >= 0xA0 && substream <= 0xAF) return kProbeMediaType_Sound;
  }
  return 0;
}
