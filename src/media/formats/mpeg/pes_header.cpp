#include "media/formats/mpeg/pes_header.h"

bool PESStreamIdHasNoHeader(uint8_t streamId) {
  switch (streamId) {
    case 0xBC:  // program stream map
    case 0xBE:  // padding
    case 0xBF:  // private stream 2
    case 0xF0:  // conditional access
    case 0xF1:  // entitlement messages
    case 0xF2:  // command and control
    case 0xF8:  // multiplexing data
    case 0xFF:  // program stream directory
      return true;
    default:
      return false;
  }
}

bool PESReadTimestamp(const uint8_t* p, uint64_t* value) {
  // Three groups of 3, 15 and 15 bits, each followed by a marker bit that must be set.
  if ((p[0] & 1) == 0 || (p[2] & 1) == 0 || (p[4] & 1) == 0) return false;
  *value = (uint64_t{p[0] & 0x0Eu} << 29) | (uint64_t{p[1]} << 22) | (uint64_t{p[2] & 0xFEu} << 14) |
           (uint64_t{p[3]} << 7) | (p[4] >> 1);
  return true;
}

bool PESHeaderGetPTS(const uint8_t* p, size_t size, bool allowMPEG1, uint64_t* pts,
                     size_t* headerSize) {
  if (size < 9 || p[0] != 0 || p[1] != 0 || p[2] != 1 || PESStreamIdHasNoHeader(p[3]))
    return false;
  if ((p[6] & 0xC0) == 0x80) {  // MPEG-2 header: flags, header data length, optional fields
    const size_t end = 9 + size_t{p[8]};
    if (headerSize) *headerSize = end;
    if ((p[7] & 0x80) == 0 || p[8] < 5 || size < 14) return false;
    return PESReadTimestamp(p + 9, pts);
  }
  if (!allowMPEG1) return false;
  size_t at = 6;
  for (int stuffing = 0; at < size && p[at] == 0xFF; at++)
    if (++stuffing > 16) return false;
  if (at + 2 <= size && (p[at] & 0xC0) == 0x40) at += 2;  // decoder buffer size
  if (at >= size) return false;
  const uint8_t kind = p[at] & 0xF0;
  if (kind == 0x20 || kind == 0x30) {
    const size_t end = at + (kind == 0x20 ? 5 : 10);
    if (end > size) return false;
    if (headerSize) *headerSize = end;
    return PESReadTimestamp(p + at, pts);
  }
  if (p[at] == 0x0F && headerSize) *headerSize = at + 1;
  return false;
}
