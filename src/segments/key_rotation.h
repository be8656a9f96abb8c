// When a stream's key and its IV change. A generated key is replaced every `keyPeriod` segments;
// a random IV is replaced once the segments written under it reach a number of output bytes, and
// together with every new key. IVs of the other modes never rotate.
#pragma once

#include <cstdint>

enum class IVMode {
  kRandom,    // random bytes, announced to the playlist
  kSequence,  // the segment's sequence number, never announced
  kFixed,     // given with the key for the whole run (streaming key delivery)
};

struct KeyRotation {
  uint32_t keyPeriod = 0;           // a new key before segment 0, p, 2p, ...; 0 = one key
  uint64_t ivRotationBytes = 0;     // output bytes one random IV serves
  uint64_t bytesSinceIVChange = 0;  // output bytes of the segments finished under the current IV
  bool newKey = false;              // a key was made since the IV last changed
  IVMode ivMode = IVMode::kRandom;
};

// The threshold is computed in 32 bits: 4096 megabytes and more wrap around (4096 gives 0, so the
// IV changes with every segment).
KeyRotation KeyRotationMake(uint32_t keyPeriodSegments, uint32_t ivMegabytes, IVMode mode);
// Whether a new key must be made before segment `segmentNumber` (counting from 0).
bool KeyRotationKeyDue(const KeyRotation& rotation, uint32_t segmentNumber);
void KeyRotationKeyChanged(KeyRotation* rotation);
// Whether the next segment needs a new random IV.
bool KeyRotationIVDue(const KeyRotation& rotation);
void KeyRotationIVChanged(KeyRotation* rotation);
void KeyRotationSegmentFinished(KeyRotation* rotation, uint64_t outputBytes);
// The IV of segment `segmentNumber` in sequence mode: the number as a 128-bit big-endian integer.
void KeyRotationSequenceIV(uint32_t segmentNumber, uint8_t iv[16]);
