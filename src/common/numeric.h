// Conversions whose C++ behaviour is undefined for out-of-range values, made defined the way
// x86-64 hardware truncates: NaN and values outside the 64-bit range give the most negative
// number. Times read from hostile input can be astronomically large.
#pragma once

#include <cstdint>
#include <limits>

inline int64_t TruncateToInt64(double d) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  if (!(d > -kTwoTo63 && d < kTwoTo63)) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(d);
}

// Truncation to 32 bits keeps the low bits of the 64-bit truncation.
inline uint32_t TruncateToUint32(double d) {
  return static_cast<uint32_t>(TruncateToInt64(d));
}
