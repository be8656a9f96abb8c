// Timing fields of MPEG packetized elementary stream headers and of pack and packet headers.
#pragma once

#include <cstddef>
#include <cstdint>

// Clock values are 33-bit counts of a 90 kHz clock.
inline constexpr uint64_t kMPEGClockWrap = uint64_t{1} << 33;
inline constexpr uint64_t kMPEGClockRate = 90000;

// True for stream ids whose packets have no header extension (and so no time stamps).
bool PESStreamIdHasNoHeader(uint8_t streamId);

// Reads the presentation time stamp of the packet at `p` (starting with 00 00 01 and its stream
// id). `allowMPEG1` accepts the older header form found in MPEG-1 program streams. When the
// header is complete, `*headerSize` receives its length (so the payload starts at p + size).
bool PESHeaderGetPTS(const uint8_t* p, size_t size, bool allowMPEG1, uint64_t* pts,
                     size_t* headerSize);

// Reads a 33-bit time stamp stored in the 5-byte marker form.
bool PESReadTimestamp(const uint8_t* p, uint64_t* value);
