#include "media/core/mx_time.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>

#include "common/numeric.h"

namespace {

// A compiler extension: the widest integer, for products of two 64-bit values.
__extension__ using int128 = __int128;

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();

int64_t WrappingNegate(int64_t v) {
  return static_cast<int64_t>(0 - static_cast<uint64_t>(v));
}

MxTime Infinity(bool positive) {
  return positive ? kMxTimePositiveInfinity : kMxTimeNegativeInfinity;
}

bool IsInfinite(MxTime t) {
  return MxTimeIsPositiveInfinity(t) || MxTimeIsNegativeInfinity(t);
}

uint32_t RoundedBit(uint32_t flags) {
  return flags & kMxTimeFlags_HasBeenRounded;
}

// The special-value rules shared by Add (subtract=false) and Subtract (subtract=true). Returns
// true and fills *result when either operand is not numeric.
bool CombineSpecial(MxTime a, MxTime b, bool subtract, MxTime* result) {
  if (!MxTimeIsValid(a) || !MxTimeIsValid(b)) {
    *result = kMxTimeInvalid;
  } else if (MxTimeIsPositiveInfinity(a)) {
    bool clash = subtract ? MxTimeIsPositiveInfinity(b) : MxTimeIsNegativeInfinity(b);
    *result = clash ? kMxTimeInvalid : kMxTimePositiveInfinity;
  } else if (MxTimeIsNegativeInfinity(a)) {
    bool clash = subtract ? MxTimeIsNegativeInfinity(b) : MxTimeIsPositiveInfinity(b);
    *result = clash ? kMxTimeInvalid : kMxTimeNegativeInfinity;
  } else if (MxTimeIsPositiveInfinity(b)) {
    *result = Infinity(!subtract);
  } else if (MxTimeIsNegativeInfinity(b)) {
    *result = Infinity(subtract);
  } else if (MxTimeIsIndefinite(a) || MxTimeIsIndefinite(b)) {
    *result = kMxTimeIndefinite;
  } else {
    return false;
  }
  return true;
}

int32_t CommonTimescale(int32_t a, int32_t b) {
  if (a == b) return a;
  int64_t lcm = static_cast<int64_t>(b / std::gcd(a, b)) * a;
  return lcm < (int64_t{1} << 31) ? static_cast<int32_t>(lcm) : 1000000000;
}

// Add or subtract two numeric times: bring both to a common timescale, halving it while a
// conversion or the sum overflows.
MxTime AddNumeric(MxTime a, MxTime b, bool subtract, int64_t epoch) {
  int32_t common = CommonTimescale(a.timescale, b.timescale);
  for (;;) {
    MxTime ca = a.timescale == common ? a : MxTimeConvertScale(a, common, 1);
    MxTime cb = b.timescale == common ? b : MxTimeConvertScale(b, common, 1);
    if (!MxTimeIsValid(ca) || !MxTimeIsValid(cb)) return kMxTimeInvalid;
    if (IsInfinite(ca) || IsInfinite(cb)) {
      if (common >= 2) {
        common >>= 1;
        continue;
      }
      MxTime special;
      CombineSpecial(ca, cb, subtract, &special);
      return special;
    }
    int64_t sum;
    bool overflow = subtract ? __builtin_sub_overflow(ca.value, cb.value, &sum)
                             : __builtin_add_overflow(ca.value, cb.value, &sum);
    if (!overflow) {
      return MxTime{sum, common, 1 | RoundedBit(ca.flags | cb.flags), epoch};
    }
    if (common < 2) return Infinity(sum < 0);
    common >>= 1;
  }
}

MxTime AddOrSubtract(MxTime a, MxTime b, bool subtract) {
  MxTime special;
  if (CombineSpecial(a, b, subtract, &special)) return special;
  if (a.epoch != 0 && b.epoch != 0 && a.epoch != b.epoch) return kMxTimeInvalid;
  int64_t epoch = a.epoch != 0 ? a.epoch : b.epoch;
  uint32_t flags = 1 | RoundedBit(a.flags | b.flags);
  if (!subtract) {
    if (a.value == 0) return MxTime{b.value, b.timescale, flags, epoch};
    if (b.value == 0) return MxTime{a.value, a.timescale, flags, epoch};
  } else {
    if (b.value == 0) return MxTime{a.value, a.timescale, flags, epoch};
    if (a.value == 0 && b.value != kInt64Min) return MxTime{-b.value, b.timescale, flags, epoch};
  }
  return AddNumeric(a, b, subtract, epoch);
}

}  // namespace

MxTime MxTimeMake(int64_t value, int32_t timescale) {
  if (timescale <= 0) return kMxTimeInvalid;
  return MxTime{value, timescale, kMxTimeFlags_Valid, 0};
}

MxTime MxTimeMakeWithSeconds(double seconds, int32_t timescale) {
  if (timescale < 1) return kMxTimeInvalid;
  if (seconds == 0) return MxTime{0, timescale, kMxTimeFlags_Valid, 0};
  double p = std::fabs(static_cast<double>(timescale) * seconds);
  while (p > kTwoTo63) {
    timescale >>= 1;
    if (timescale == 0) return Infinity(!(seconds < 0));
    // Without the magnitude this time: a negative product ends the loop and is negated below,
    // so an out-of-range negative time comes out positive, with the rounded flag. Times read
    // from files may rely on this sign, so it is kept.
    p = static_cast<double>(timescale) * seconds;
  }
  int64_t value = TruncateToInt64(p);
  if (seconds < 0) value = WrappingNegate(value);
  double back = static_cast<double>(value) / timescale;
  uint32_t flags = kMxTimeFlags_Valid;
  if (back != seconds) flags |= kMxTimeFlags_HasBeenRounded;  // also true for NaN
  return MxTime{value, timescale, flags, 0};
}

double MxTimeGetSeconds(MxTime t) {
  if (MxTimeIsValid(t) && !MxTimeIsIndefinite(t)) {
    if (t.flags & kMxTimeFlags_PositiveInfinity) return HUGE_VAL;
    if (t.flags & kMxTimeFlags_NegativeInfinity) return -HUGE_VAL;
    return static_cast<double>(t.value) / t.timescale;
  }
  return NAN;
}

MxTime MxTimeConvertScale(MxTime t, int32_t newTs, uint32_t method) {
  if (!MxTimeIsNumeric(t)) return t;
  if (newTs <= 0 || t.timescale <= 0) return kMxTimeInvalid;
  if (newTs == t.timescale) return t;
  const int64_t oldTs = t.timescale;
  int128 product = static_cast<int128>(t.value) * newTs;
  int128 q = product / oldTs;
  int128 remainder = product % oldTs;  // carries the sign of the exact fraction
  if (q < kInt64Min) return kMxTimeNegativeInfinity;
  if (q > kInt64Max) return kMxTimePositiveInfinity;
  if (remainder == 0) {
    return MxTime{static_cast<int64_t>(q), newTs, 1 | RoundedBit(t.flags), t.epoch};
  }
  const int step = remainder > 0 ? 1 : -1;
  const int128 absRemainder = remainder > 0 ? remainder : -remainder;
  switch (method) {
    case kMxTimeRoundingMethod_RoundHalfAwayFromZero:
      if (!(2 * absRemainder < oldTs)) q += step;
      break;
    case kMxTimeRoundingMethod_RoundAwayFromZero:
      q += step;
      break;
    case kMxTimeRoundingMethod_RoundTowardZeroMediaFile:
      if (oldTs >= newTs) {
        if (q == 0) q = t.value >= 0 ? 0 : -1;
      } else {
        q += step;
      }
      break;
    case kMxTimeRoundingMethod_RoundTowardPositiveInfinity:
      if (remainder > 0) q += 1;
      break;
    case kMxTimeRoundingMethod_RoundTowardNegativeInfinity:
      if (remainder < 0) q -= 1;
      break;
    default:  // toward zero, and unknown methods: no adjustment
      break;
  }
  if (q < kInt64Min) return kMxTimeNegativeInfinity;
  if (q > kInt64Max) return kMxTimePositiveInfinity;
  return MxTime{static_cast<int64_t>(q), newTs, kMxTimeFlags_Valid | kMxTimeFlags_HasBeenRounded,
                t.epoch};
}

MxTime MxTimeAdd(MxTime a, MxTime b) {
  return AddOrSubtract(a, b, false);
}

MxTime MxTimeSubtract(MxTime a, MxTime b) {
  return AddOrSubtract(a, b, true);
}

MxTime MxTimeMultiply(MxTime t, int32_t n) {
  if (!MxTimeIsValid(t)) return kMxTimeInvalid;
  if (MxTimeIsIndefinite(t)) return kMxTimeIndefinite;
  if (MxTimeIsPositiveInfinity(t)) return Infinity(n >= 0);
  if (MxTimeIsNegativeInfinity(t)) return Infinity(n < 0);
  int32_t ts = t.timescale;
  for (;;) {
    MxTime c = ts == t.timescale ? t : MxTimeConvertScale(t, ts, 1);
    if (!MxTimeIsValid(c)) return kMxTimeInvalid;
    if (MxTimeIsPositiveInfinity(c)) return Infinity(n >= 0);
    if (MxTimeIsNegativeInfinity(c)) return Infinity(n < 0);
    int128 exact = static_cast<int128>(c.value) * n;
    int64_t product = exact > kInt64Max   ? kInt64Max
                      : exact < kInt64Min ? kInt64Min
                                          : static_cast<int64_t>(exact);
    if (product != kInt64Max && product != kInt64Min) {
      return MxTime{product, ts, 1 | RoundedBit(c.flags), t.epoch};
    }
    if (ts < 2) return Infinity(product == kInt64Max);
    ts >>= 1;
  }
}

MxTime MxTimeMultiplyByFloat64(MxTime t, double m) {
  if (!MxTimeIsValid(t)) return kMxTimeInvalid;
  if (MxTimeIsIndefinite(t)) return kMxTimeIndefinite;
  if (MxTimeIsPositiveInfinity(t)) return Infinity(m >= 0);
  if (MxTimeIsNegativeInfinity(t)) return Infinity(!(m >= 0));
  bool whole = std::trunc(m) == m;  // false for NaN
  int32_t ts = (t.timescale < 1000000000 && !whole) ? 1000000000 : t.timescale;
  MxTime c;
  double p;
  for (;;) {
    c = ts == t.timescale ? t : MxTimeConvertScale(t, ts, 1);
    if (!MxTimeIsValid(c)) return kMxTimeInvalid;
    if (IsInfinite(c)) {
      if (ts < 2) return Infinity(MxTimeIsPositiveInfinity(c) != (m < 0));
      ts >>= 1;
      continue;
    }
    p = static_cast<double>(c.value) * m;
    if (p >= -kTwoTo63 && p <= kTwoTo63) break;
    if (ts < 2) return Infinity(!(p < 0));
    ts >>= 1;
  }
  double rounded = p < 0 ? p - 0.5 : p + 0.5;
  int64_t value = rounded >= kTwoTo63    ? kInt64Max
                  : rounded <= -kTwoTo63 ? kInt64Min
                                         : static_cast<int64_t>(rounded);
  uint32_t flags = 1 | RoundedBit(c.flags);
  if (!(flags & kMxTimeFlags_HasBeenRounded)) {
    bool huge = static_cast<uint64_t>(value) + (uint64_t{1} << 51) >= (uint64_t{1} << 52) + 1;
    // An inexact product at timescale 1000000000 is deliberately not marked.
    if (huge || (static_cast<double>(value) != p && ts <= 999999999)) {
      flags |= kMxTimeFlags_HasBeenRounded;
    }
  }
  return MxTime{value, ts, flags, t.epoch};
}

// value × multiplier / divisor, rounded half away from zero, keeping the timescale; on
// overflow the timescale is halved as in MxTimeMultiply.
MxTime MxTimeMultiplyByRatio(MxTime t, int32_t multiplier, int32_t divisor) {
  if (!MxTimeIsValid(t) || divisor == 0) return kMxTimeInvalid;
  if (MxTimeIsIndefinite(t)) return kMxTimeIndefinite;
  bool negativeRatio = (multiplier < 0) != (divisor < 0) && multiplier != 0;
  if (MxTimeIsPositiveInfinity(t)) return Infinity(!negativeRatio);
  if (MxTimeIsNegativeInfinity(t)) return Infinity(negativeRatio);
  int32_t ts = t.timescale;
  for (;;) {
    MxTime c = ts == t.timescale ? t : MxTimeConvertScale(t, ts, 1);
    if (!MxTimeIsValid(c)) return kMxTimeInvalid;
    if (IsInfinite(c)) return Infinity(MxTimeIsPositiveInfinity(c) != negativeRatio);
    int128 product = static_cast<int128>(c.value) * multiplier;
    int128 q = product / divisor;
    int128 r = product % divisor;
    int128 absR = r < 0 ? -r : r;
    int128 absD = divisor < 0 ? -static_cast<int128>(divisor) : divisor;
    if (r != 0 && 2 * absR >= absD) q += ((product < 0) != (divisor < 0)) ? -1 : 1;
    if (q > kInt64Min && q < kInt64Max) {
      uint32_t flags =
          1 | RoundedBit(c.flags) | (r != 0 ? uint32_t{kMxTimeFlags_HasBeenRounded} : 0u);
      return MxTime{static_cast<int64_t>(q), ts, flags, t.epoch};
    }
    if (ts < 2) return Infinity(q > 0);
    ts >>= 1;
  }
}

int32_t MxTimeCompare(MxTime a, MxTime b) {
  if (!MxTimeIsValid(a)) return MxTimeIsValid(b) ? 1 : 0;
  if (!MxTimeIsValid(b)) return -1;
  if (MxTimeIsPositiveInfinity(a)) return MxTimeIsPositiveInfinity(b) ? 0 : 1;
  if (MxTimeIsPositiveInfinity(b)) return -1;
  if (MxTimeIsIndefinite(a)) return MxTimeIsIndefinite(b) ? 0 : 1;
  if (MxTimeIsIndefinite(b)) return -1;
  if (MxTimeIsNegativeInfinity(a)) return MxTimeIsNegativeInfinity(b) ? 0 : -1;
  if (MxTimeIsNegativeInfinity(b)) return 1;
  if (a.epoch != b.epoch) return a.epoch > b.epoch ? 1 : -1;
  if (a.timescale == b.timescale) return a.value == b.value ? 0 : (a.value > b.value ? 1 : -1);
  bool aNegative = a.value < 0, bNegative = b.value < 0;
  if (aNegative != bNegative) return aNegative ? -1 : 1;
  int128 absA = a.value < 0 ? -static_cast<int128>(a.value) : a.value;
  int128 absB = b.value < 0 ? -static_cast<int128>(b.value) : b.value;
  int128 left = absA * b.timescale, right = absB * a.timescale;
  int32_t result = left == right ? 0 : (left > right ? 1 : -1);
  return aNegative ? -result : result;
}

MxTime MxTimeMinimum(MxTime a, MxTime b) {
  return MxTimeCompare(a, b) < 0 ? a : b;
}

MxDictionary MxTimeCopyAsDictionary(MxTime t) {
  return MxDictionary{{"value", MxValue(t.value)},
                      {"timescale", MxValue(t.timescale)},
                      {"epoch", MxValue(t.epoch)},
                      {"flags", MxValue(static_cast<int32_t>(t.flags))}};
}

MxTime MxTimeMakeFromDictionary(const MxDictionary* dictionary) {
  if (dictionary == nullptr) return kMxTimeInvalid;
  auto number = [&](const char* key) -> const MxValue* {
    auto it = dictionary->find(key);
    return it == dictionary->end() ? nullptr : &it->second;
  };
  const MxValue *value = number("value"), *timescale = number("timescale"),
                *epoch = number("epoch"), *flags = number("flags");
  if (!value || !timescale || !epoch || !flags) return kMxTimeInvalid;
  auto v = value->GetInt64();
  auto ts = timescale->GetInt32();
  auto e = epoch->GetInt64();
  auto f = flags->GetInt32();
  if (!v || !ts || !e || !f) return kMxTimeInvalid;
  return MxTime{*v, *ts, static_cast<uint32_t>(*f), *e};
}

std::string MxTimeCopyDescription(MxTime t) {
  if (!MxTimeIsNumeric(t)) {
    if (!MxTimeIsValid(t)) return "{INVALID}";
    switch (t.flags & 29) {
      case 17:
        return "{INDEFINITE}";
      case 5:
        return "{+INFINITY}";
      case 9:
        return "{-INFINITY}";
      default:
        return "{UNKNOWN}";
    }
  }
  char text[160];
  int n = snprintf(text, sizeof text, "{%" PRId64 "/%d = %1.3f", t.value, t.timescale,
                   MxTimeGetSeconds(t));
  std::string out(text, static_cast<size_t>(n));
  if (t.epoch != 0) {
    snprintf(text, sizeof text, ", epoch=%" PRId64, t.epoch);
    out += text;
  }
  if ((t.flags & 31) == 3) out += ", rounded";
  if (t.flags >= 4) {
    snprintf(text, sizeof text, ", flags=0x%08x", t.flags);
    out += text;
  }
  return out + "}";
}

MxTime MxTimeRangeGetEnd(MxTimeRange range) {
  if (range.duration.epoch != 0) return kMxTimeInvalid;
  return MxTimeAdd(range.start, range.duration);
}
