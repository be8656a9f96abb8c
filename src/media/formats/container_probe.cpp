#include "media/formats/container_probe.h"

#include <cmath>
#include <limits>

MxTime ProbeDurationFromCount(uint64_t count, uint64_t unit, uint64_t unitsPerSecond) {
  if (unitsPerSecond == 0) return kMxTimeInvalid;
  constexpr uint64_t kMaxValue = std::numeric_limits<int64_t>::max();
  if (unitsPerSecond <= uint64_t{std::numeric_limits<int32_t>::max()} &&
      (unit == 0 || count <= kMaxValue / unit))
    return MxTimeMake(static_cast<int64_t>(count * unit), static_cast<int32_t>(unitsPerSecond));
  return ProbeDurationFromSeconds(static_cast<double>(count) * static_cast<double>(unit) /
                                  static_cast<double>(unitsPerSecond));
}

MxTime ProbeDurationFromSeconds(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0 || seconds > 9e12) return kMxTimeInvalid;
  MxTime t = MxTimeMake(static_cast<int64_t>(std::llround(seconds * 1e6)), 1000000);
  t.flags |= kMxTimeFlags_HasBeenRounded;
  return t;
}
