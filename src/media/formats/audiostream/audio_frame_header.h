// Frame headers of framed audio streams: MPEG audio (layers I to III), AAC in ADTS, AC-3 and
// enhanced AC-3. Each parser reads one header and says how long the frame is and how many
// sample frames it decodes to; false when the bytes are not a valid header of its kind.
#pragma once

#include <cstddef>
#include <cstdint>

enum class AudioFrameKind { kMPEGAudio, kADTS, kAC3 };

struct AudioFrame {
  uint32_t size = 0;        // bytes, header included
  uint32_t samples = 0;     // sample frames
  uint32_t sampleRate = 0;  // Hz
  uint8_t form = 0;         // what must stay the same from frame to frame (version and layer)
};

bool ParseAudioFrameHeader(AudioFrameKind kind, const uint8_t* p, size_t size, AudioFrame* out);

// Frames of MPEG audio layer III may start with an information frame ('Xing', 'Info' or
// 'VBRI') that counts the frames of the stream. True when `frame` (the whole first frame) is
// one; `*frames` receives the count, when the frame gives it.
bool MPEGAudioInfoFrame(const uint8_t* frame, size_t size, bool* haveCount, uint32_t* frames);
