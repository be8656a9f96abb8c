#include "media/formats/mpeg/program_stream.h"

#include <algorithm>
#include <cstring>

#include "media/core/byte_cursor.h"
#include "media/formats/mpeg/mpeg_stream_types.h"
#include "media/formats/mpeg/pes_header.h"

namespace {

constexpr uint8_t kPackStart = 0xBA;
constexpr uint8_t kProgramEnd = 0xB9;
constexpr uint8_t kSystemHeader = 0xBB;

bool IsStartCode(const uint8_t* p) {
  return p[0] == 0 && p[1] == 0 && p[2] == 1;
}

// The size of the pack header at `p` (with its stuffing) and its system clock reference; zero
// when the bytes are not a complete pack header.
size_t PackHeader(const uint8_t* p, size_t size, uint64_t* clock) {
  if (size < 12) return 0;
  if ((p[4] & 0xC0) == 0x40) {  // MPEG-2: '01', clock in marker form with an extension
    if (size < 14) return 0;
    const uint8_t* c = p + 4;
    *clock = (uint64_t{c[0] & 0x38u} << 27) | (uint64_t{c[0] & 0x03u} << 28) |
             (uint64_t{c[1]} << 20) | (uint64_t{c[2] & 0xF8u} << 12) |
             (uint64_t{c[2] & 0x03u} << 13) | (uint64_t{c[3]} << 5) | (c[4] >> 3);
    return 14 + (p[13] & 7);
  }
  if ((p[4] & 0xF0) == 0x20) {  // MPEG-1: '0010', clock in the time stamp form
    if (!PESReadTimestamp(p + 4, clock)) return 0;
    return 12;
  }
  return 0;
}

}  // namespace

bool ProgramStreamStartsWithPack(const uint8_t* head, size_t size) {
  uint64_t clock = 0;
  return size >= 4 && IsStartCode(head) && head[3] == kPackStart &&
         PackHeader(head, size, &clock) != 0;
}

void ProgramStreamWalker::Walk(const uint8_t* bytes, size_t size, Visitor* visitor) {
  size_t at = 0;
  while (at + 4 <= size) {
    if (!IsStartCode(bytes + at)) {
      // Skip to the next possible start code.
      const void* next = memchr(bytes + at + 1, 0, size - at - 1);
      at = next ? static_cast<size_t>(static_cast<const uint8_t*>(next) - bytes) : size;
      continue;
    }
    const uint8_t id = bytes[at + 3];
    if (id == kPackStart) {
      uint64_t clock = 0;
      const size_t length = PackHeader(bytes + at, size - at, &clock);
      if (length == 0) {
        at += 1;
        continue;
      }
      visitor->SystemClock(clock);
      at += length;
      continue;
    }
    if (id == kProgramEnd || id < kSystemHeader || at + 6 > size) {
      at += 4;
      continue;
    }
    const size_t length = static_cast<uint16_t>(MxLoadBigEndian(bytes + at + 4, 2));
    const size_t available = std::min(size - at, 6 + length);
    const uint8_t* packet = bytes + at;
    const bool elementary = id == kPrivateStream1 || (id >= 0xC0 && id <= 0xEF);
    if (elementary) {
      uint64_t pts = 0;
      size_t headerSize = 0;
      const bool havePTS = PESHeaderGetPTS(packet, available, true, &pts, &headerSize);
      uint32_t key = id;
      uint8_t substream = 0;
      if (id == kPrivateStream1) {
        if (headerSize == 0 || headerSize >= available) {
          at += 6 + length;
          continue;
        }
        substream = packet[headerSize];
        key = (uint32_t{kPrivateStream1} << 8) | substream;
      }
      visitor->Packet(key, MPEGStreamIdMediaType(id, substream), havePTS, pts,
                      static_cast<uint32_t>(length));
    }
    at += 6 + length;
  }
}
