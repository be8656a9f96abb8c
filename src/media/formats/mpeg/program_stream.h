// Walking an MPEG-1 or MPEG-2 program stream: pack headers with their system clock, and the
// packets of each elementary stream with their time stamps. Bytes that are not a start code
// are skipped up to the next one, so the walk may begin anywhere (at the tail of a file).
#pragma once

#include <cstddef>
#include <cstdint>

// True when the data starts with a pack header of either version.
bool ProgramStreamStartsWithPack(const uint8_t* head, size_t size);

// A stream's key is its stream id, or 0xBD00 plus the substream number for private stream 1.
inline constexpr uint32_t kPrivateStream1 = 0xBD;

class ProgramStreamWalker {
 public:
  struct Visitor {
    virtual ~Visitor() = default;
    // `mediaType` is zero for streams that are not presented as tracks.
    virtual void Packet(uint32_t streamKey, uint32_t mediaType, bool havePTS, uint64_t pts) = 0;
    virtual void SystemClock(uint64_t clock) = 0;
  };

  static void Walk(const uint8_t* bytes, size_t size, Visitor* visitor);
};
