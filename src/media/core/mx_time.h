// Rational media time: a 64-bit tick count over a 32-bit number of ticks per second, with flags
// for invalid, rounded, infinite and indefinite times, and an epoch. Plain value type.
#pragma once

#include <cstdint>
#include <string>

#include "media/core/value.h"

struct MxTime {
  int64_t value;
  int32_t timescale;
  uint32_t flags;
  int64_t epoch;
};

enum : uint32_t {
  kMxTimeFlags_Valid = 1,
  kMxTimeFlags_HasBeenRounded = 2,
  kMxTimeFlags_PositiveInfinity = 4,
  kMxTimeFlags_NegativeInfinity = 8,
  kMxTimeFlags_Indefinite = 16,
};

enum MxTimeRoundingMethod : uint32_t {
  kMxTimeRoundingMethod_RoundHalfAwayFromZero = 1,
  kMxTimeRoundingMethod_RoundTowardZero = 2,
  kMxTimeRoundingMethod_RoundAwayFromZero = 3,
  // Toward zero when the new scale is not finer, except that a negative time that would
  // become 0 becomes -1; away from zero when the new scale is finer.
  kMxTimeRoundingMethod_RoundTowardZeroMediaFile = 4,
  kMxTimeRoundingMethod_RoundTowardPositiveInfinity = 5,
  kMxTimeRoundingMethod_RoundTowardNegativeInfinity = 6,
};

struct MxTimeRange {
  MxTime start;
  MxTime duration;
};

inline constexpr MxTime kMxTimeInvalid = {0, 0, 0, 0};
inline constexpr MxTime kMxTimeIndefinite = {0, 0, 17, 0};
inline constexpr MxTime kMxTimePositiveInfinity = {0, 0, 5, 0};
inline constexpr MxTime kMxTimeNegativeInfinity = {0, 0, 9, 0};
inline constexpr MxTime kMxTimeZero = {0, 1, 1, 0};

inline bool MxTimeIsValid(MxTime t) {
  return (t.flags & kMxTimeFlags_Valid) != 0;
}
inline bool MxTimeIsNumeric(MxTime t) {
  return (t.flags & 29) == 1;
}
inline bool MxTimeIsPositiveInfinity(MxTime t) {
  return MxTimeIsValid(t) && (t.flags & kMxTimeFlags_PositiveInfinity);
}
inline bool MxTimeIsNegativeInfinity(MxTime t) {
  return MxTimeIsValid(t) && (t.flags & kMxTimeFlags_NegativeInfinity);
}
inline bool MxTimeIsIndefinite(MxTime t) {
  return MxTimeIsValid(t) && (t.flags & kMxTimeFlags_Indefinite);
}

MxTime MxTimeMake(int64_t value, int32_t timescale);
MxTime MxTimeMakeWithSeconds(double seconds, int32_t preferredTimescale);
double MxTimeGetSeconds(MxTime t);
MxTime MxTimeConvertScale(MxTime t, int32_t newTimescale, uint32_t method);
MxTime MxTimeAdd(MxTime a, MxTime b);
MxTime MxTimeSubtract(MxTime a, MxTime b);
MxTime MxTimeMultiply(MxTime t, int32_t multiplier);
MxTime MxTimeMultiplyByFloat64(MxTime t, double multiplier);
MxTime MxTimeMultiplyByRatio(MxTime t, int32_t multiplier, int32_t divisor);
int32_t MxTimeCompare(MxTime a, MxTime b);
MxTime MxTimeMinimum(MxTime a, MxTime b);
MxDictionary MxTimeCopyAsDictionary(MxTime t);
MxTime MxTimeMakeFromDictionary(const MxDictionary* dictionary);
std::string MxTimeCopyDescription(MxTime t);
MxTime MxTimeRangeGetEnd(MxTimeRange range);
