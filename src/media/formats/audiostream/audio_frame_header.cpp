#include "media/formats/audiostream/audio_frame_header.h"

#include <cstring>

#include "media/core/byte_cursor.h"
#include "media/core/four_cc.h"

namespace {

// Bit rates in kbit/s by index 1-14, for MPEG-1 layers I, II, III and MPEG-2/2.5 layer I, and
// layers II and III.
constexpr uint16_t kBitRates[5][15] = {
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
};
constexpr uint32_t kMPEGAudioRates[3] = {44100, 48000, 32000};

bool ParseMPEGAudio(const uint8_t* p, size_t size, AudioFrame* out) {
  if (size < 4 || p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return false;
  const int version = (p[1] >> 3) & 3;      // 0: 2.5, 1: reserved, 2: 2, 3: 1
  const int layer = 4 - ((p[1] >> 1) & 3);  // 4 is reserved
  const int bitRateIndex = p[2] >> 4;
  const int rateIndex = (p[2] >> 2) & 3;
  const uint32_t padding = (p[2] >> 1) & 1;
  if (version == 1 || layer == 4 || bitRateIndex == 0 || bitRateIndex == 15 || rateIndex == 3 ||
      (p[3] & 3) == 2)
    return false;
  const bool mpeg1 = version == 3;
  const int table = mpeg1 ? layer - 1 : (layer == 1 ? 3 : 4);
  const uint32_t bitRate = kBitRates[table][bitRateIndex] * 1000u;
  const uint32_t rate = kMPEGAudioRates[rateIndex] >> (mpeg1 ? 0 : version == 2 ? 1 : 2);
  if (layer == 1) {
    out->size = (12 * bitRate / rate + padding) * 4;
    out->samples = 384;
  } else if (layer == 2 || mpeg1) {
    out->size = 144 * bitRate / rate + padding;
    out->samples = 1152;
  } else {
    out->size = 72 * bitRate / rate + padding;
    out->samples = 576;
  }
  out->sampleRate = rate;
  out->form = static_cast<uint8_t>((version << 2) | layer);
  return out->size >= 4;
}

constexpr uint32_t kADTSRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                     22050, 16000, 12000, 11025, 8000,  7350};

bool ParseADTS(const uint8_t* p, size_t size, AudioFrame* out) {
  if (size < 7 || p[0] != 0xFF || (p[1] & 0xF6) != 0xF0) return false;
  const int rateIndex = (p[2] >> 2) & 0xF;
  if (rateIndex >= 13) return false;
  const uint32_t length = ((p[3] & 3u) << 11) | (uint32_t{p[4]} << 3) | (p[5] >> 5);
  const uint32_t headerSize = (p[1] & 1) ? 7 : 9;
  if (length < headerSize) return false;
  out->size = length;
  out->samples = 1024 * ((p[6] & 3u) + 1);
  out->sampleRate = kADTSRates[rateIndex];
  out->form = static_cast<uint8_t>(rateIndex);
  return true;
}

// AC-3 frame sizes in 16-bit words by frame size code / 2, for 48, 44.1 and 32 kHz; the 44.1 kHz
// size gains one word when the code is odd.
constexpr uint16_t kAC3Words[19][3] = {
    {64, 69, 96},     {80, 87, 120},      {96, 104, 144},     {112, 121, 168},    {128, 139, 192},
    {160, 174, 240},  {192, 208, 288},    {224, 243, 336},    {256, 278, 384},    {320, 348, 480},
    {384, 417, 576},  {448, 487, 672},    {512, 557, 768},    {640, 696, 960},    {768, 835, 1152},
    {896, 975, 1344}, {1024, 1114, 1536}, {1152, 1253, 1728}, {1280, 1393, 1920},
};
constexpr uint32_t kAC3Rates[3] = {48000, 44100, 32000};

bool ParseAC3(const uint8_t* p, size_t size, AudioFrame* out) {
  if (size < 6 || p[0] != 0x0B || p[1] != 0x77) return false;
  const int streamId = p[5] >> 3;
  if (streamId <= 10) {  // AC-3
    const int rateCode = p[4] >> 6;
    const int sizeCode = p[4] & 0x3F;
    if (rateCode == 3 || sizeCode >= 38) return false;
    uint32_t words = kAC3Words[sizeCode / 2][rateCode];
    if (rateCode == 1 && (sizeCode & 1)) words++;
    out->size = words * 2;
    out->samples = 1536;
    out->sampleRate = kAC3Rates[rateCode];
    out->form = 0;
    return true;
  }
  if (streamId > 16) return false;
  // Enhanced AC-3: 11-bit frame size in words minus one, then the rate code and block count.
  const uint32_t words = (((p[2] & 7u) << 8) | p[3]) + 1;
  const int rateCode = p[4] >> 6;
  uint32_t blocks = 6;
  uint32_t rate = 0;
  if (rateCode == 3) {
    const int reducedCode = (p[4] >> 4) & 3;
    if (reducedCode == 3) return false;
    rate = kAC3Rates[reducedCode] / 2;
  } else {
    static constexpr uint32_t kBlocks[4] = {1, 2, 3, 6};
    blocks = kBlocks[(p[4] >> 4) & 3];
    rate = kAC3Rates[rateCode];
  }
  out->size = words * 2;
  out->samples = 256 * blocks;
  out->sampleRate = rate;
  out->form = 1;
  return out->size >= 6;
}

}  // namespace

bool ParseAudioFrameHeader(AudioFrameKind kind, const uint8_t* p, size_t size, AudioFrame* out) {
  switch (kind) {
    case AudioFrameKind::kMPEGAudio:
      return ParseMPEGAudio(p, size, out);
    case AudioFrameKind::kADTS:
      return ParseADTS(p, size, out);
    case AudioFrameKind::kAC3:
      return ParseAC3(p, size, out);
  }
  return false;
}

bool MPEGAudioInfoFrame(const uint8_t* frame, size_t size, bool* haveCount, uint32_t* frames,
                        uint32_t* bytes) {
  AudioFrame header;
  if (!ParseMPEGAudio(frame, size, &header) || header.size > size) return false;
  *haveCount = false;
  *bytes = 0;
  const int version = (frame[1] >> 3) & 3;
  const bool mono = (frame[3] >> 6) == 3;
  // 'Xing' or 'Info' follows the side information, whose size depends on version and mode.
  const size_t sideInfo = version == 3 ? (mono ? 17 : 32) : (mono ? 9 : 17);
  MxByteCursor xing(frame, header.size);
  uint32_t tag = 0, flags = 0;
  if (xing.Skip(4 + sideInfo) && xing.ReadU32(&tag) &&
      (tag == MxFourCC("Xing") || tag == MxFourCC("Info"))) {
    if (!xing.ReadU32(&flags)) return true;
    if ((flags & 1) && xing.ReadU32(frames)) *haveCount = true;
    if ((flags & 2) && !xing.ReadU32(bytes)) *bytes = 0;
    return true;
  }
  // 'VBRI' sits 32 bytes after the header: version, delay, quality, bytes, frames.
  MxByteCursor vbri(frame, header.size);
  if (vbri.Skip(4 + 32) && vbri.ReadU32(&tag) && tag == MxFourCC("VBRI")) {
    if (vbri.Skip(2 + 2 + 2) && vbri.ReadU32(bytes) && vbri.ReadU32(frames)) *haveCount = true;
    return true;
  }
  return false;
}
