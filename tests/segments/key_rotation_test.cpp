#include "segments/key_rotation.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// Opens segments of the given output sizes one after another, as the chunk file does, and notes
// what changes before each: "k" a new key, "i" a new random IV, "-" nothing.
std::string Changes(KeyRotation rotation, const std::vector<uint64_t>& segmentBytes) {
  std::string changes;
  for (uint32_t n = 0; n < segmentBytes.size(); n++) {
    std::string step;
    if (KeyRotationKeyDue(rotation, n)) {
      KeyRotationKeyChanged(&rotation);
      step += 'k';
    }
    if (KeyRotationIVDue(rotation)) {
      KeyRotationIVChanged(&rotation);
      step += 'i';
    }
    changes += (n == 0 ? "" : " ") + (step.empty() ? "-" : step);
    KeyRotationSegmentFinished(&rotation, segmentBytes[n]);
  }
  return changes;
}

TEST(KeyRotation, WhenKeysAndIVsChange) {
  constexpr uint64_t kMB = 1048576;
  struct Case {
    const char* name;
    uint32_t period, megabytes;
    IVMode mode;
    std::vector<uint64_t> sizes;
    const char* expected;
  } cases[] = {
      {"one key", 0, 50, IVMode::kRandom, {100, 100, 100}, "- - -"},
      {"a key per segment", 1, 50, IVMode::kRandom, {100, 100, 100}, "ki ki ki"},
      {"a key every 3", 3, 50, IVMode::kRandom, {1, 1, 1, 1, 1, 1, 1}, "ki - - ki - - ki"},
      {"exactly at the limit", 0, 1, IVMode::kRandom, {kMB - 1, 1, 1}, "- - i"},
      {"just past the limit", 0, 1, IVMode::kRandom, {kMB + 1, 1}, "- i"},
      {"every second 600 KiB segment", 0, 1, IVMode::kRandom, std::vector<uint64_t>(6, 600 * 1024),
       "- - i - i -"},
      {"4096 MB wraps to 0", 0, 4096, IVMode::kRandom, {1, 1, 1}, "i i i"},
      {"4097 MB wraps to 1", 0, 4097, IVMode::kRandom, {kMB, 1}, "- i"},
      {"sequence IVs never rotate", 2, 4096, IVMode::kSequence, {1, 1, 1}, "k - k"},
      {"a fixed IV never rotates", 0, 4096, IVMode::kFixed, {1, 1}, "- -"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Changes(KeyRotationMake(c.period, c.megabytes, c.mode), c.sizes), c.expected)
        << c.name;
  }
}

TEST(KeyRotation, SequenceIVIsTheSegmentNumberBigEndian) {
  struct Case {
    uint32_t segment;
    uint8_t last4[4];
  } cases[] = {{0, {0, 0, 0, 0}}, {0x01020304, {1, 2, 3, 4}}, {0xffffffff, {255, 255, 255, 255}}};
  for (const Case& c : cases) {
    uint8_t iv[16];
    memset(iv, 0xaa, sizeof iv);
    KeyRotationSequenceIV(c.segment, iv);
    EXPECT_EQ(std::vector<uint8_t>(iv, iv + 12), std::vector<uint8_t>(12, 0)) << c.segment;
    EXPECT_EQ(std::vector<uint8_t>(iv + 12, iv + 16), std::vector<uint8_t>(c.last4, c.last4 + 4))
        << c.segment;
  }
}

}  // namespace
