#include "segments/key_rotation.h"

#include <cstring>

KeyRotation KeyRotationMake(uint32_t keyPeriodSegments, uint32_t ivMegabytes, IVMode mode) {
  return KeyRotation{.keyPeriod = keyPeriodSegments,
                     .ivRotationBytes = static_cast<uint32_t>(ivMegabytes * 1048576u),
                     .ivMode = mode};
}

bool KeyRotationKeyDue(const KeyRotation& r, uint32_t segmentNumber) {
  return r.keyPeriod != 0 && segmentNumber % r.keyPeriod == 0;
}

void KeyRotationKeyChanged(KeyRotation* r) {
  r->newKey = true;
}

bool KeyRotationIVDue(const KeyRotation& r) {
  return r.ivMode == IVMode::kRandom && (r.newKey || r.bytesSinceIVChange >= r.ivRotationBytes);
}

void KeyRotationIVChanged(KeyRotation* r) {
  r->newKey = false;
  r->bytesSinceIVChange = 0;
}

void KeyRotationSegmentFinished(KeyRotation* r, uint64_t outputBytes) {
  r->bytesSinceIVChange += outputBytes;
}

void KeyRotationSequenceIV(uint32_t segmentNumber, uint8_t iv[16]) {
  memset(iv, 0, 16);
  for (int i = 0; i < 4; i++) iv[12 + i] = static_cast<uint8_t>(segmentNumber >> (24 - 8 * i));
}
