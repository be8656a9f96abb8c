#include "media/core/mx_time.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

void ExpectTime(MxTime t, int64_t value, int32_t timescale, uint32_t flags, int64_t epoch = 0) {
  EXPECT_EQ(t.value, value);
  EXPECT_EQ(t.timescale, timescale);
  EXPECT_EQ(t.flags, flags);
  EXPECT_EQ(t.epoch, epoch);
}

TEST(MxTime, MakeAndMakeWithSeconds) {
  ExpectTime(MxTimeMake(5, 0), 0, 0, 0);
  ExpectTime(MxTimeMake(5, 7), 5, 7, 1);
  ExpectTime(MxTimeMakeWithSeconds(1.5, 0), 0, 0, 0);
  ExpectTime(MxTimeMakeWithSeconds(0.1, 3), 0, 3, 3);
  ExpectTime(MxTimeMakeWithSeconds(0, 600), 0, 600, 1);
  ExpectTime(MxTimeMakeWithSeconds(1.5, 1000), 1500, 1000, 1);
  ExpectTime(MxTimeMakeWithSeconds(-1.5, 1000), -1500, 1000, 1);
  // Too large for the timescale: it is halved until the product fits.
  MxTime big = MxTimeMakeWithSeconds(1e10, 1000000000);
  EXPECT_LT(big.timescale, 1000000000);
  EXPECT_EQ(big.flags & 1, 1u);
  EXPECT_NEAR(MxTimeGetSeconds(big), 1e10, 1);
  // Out-of-range negative seconds come out positive and rounded.
  MxTime negative = MxTimeMakeWithSeconds(-1e10, 1000000000);
  EXPECT_GT(negative.value, 0);
  EXPECT_EQ(negative.flags, 3u);
  ExpectTime(MxTimeMakeWithSeconds(1e300, 1), 0, 0, 5);
  ExpectTime(MxTimeMakeWithSeconds(-1e300, 1), 0, 0, 9);
}

TEST(MxTime, GetSecondsOfSpecialValues) {
  EXPECT_TRUE(std::isnan(MxTimeGetSeconds(kMxTimeInvalid)));
  EXPECT_TRUE(std::isnan(MxTimeGetSeconds(kMxTimeIndefinite)));
  EXPECT_EQ(MxTimeGetSeconds(kMxTimePositiveInfinity), HUGE_VAL);
  EXPECT_EQ(MxTimeGetSeconds(kMxTimeNegativeInfinity), -HUGE_VAL);
  EXPECT_DOUBLE_EQ(MxTimeGetSeconds(MxTimeMake(3003, 30000)), 0.1001);
}

TEST(MxTime, ConvertScaleRoundingMethods) {
  struct Case {
    int64_t value;
    int32_t from, to;
    uint32_t method;
    int64_t expected;
    uint32_t flags;
  } cases[] = {
      {1, 3, 10, 1, 3, 3},   {1, 3, 10, 2, 3, 3},   {1, 3, 10, 3, 4, 3},   {1, 3, 10, 5, 4, 3},
      {1, 3, 10, 6, 3, 3},   {-1, 3, 10, 5, -3, 3}, {-1, 3, 10, 6, -4, 3}, {-1, 3, 1, 4, -1, 3},
      {1, 3, 1, 4, 0, 3},    {2, 3, 1, 4, 0, 3},    {1, 3, 10, 4, 4, 3},   {5, 10, 1, 1, 1, 3},
      {-5, 10, 1, 1, -1, 3}, {4, 10, 1, 1, 0, 3},   {1, 3, 10, 99, 3, 3},  {30, 3, 10, 1, 100, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << c.value << "/" << c.from << " -> " << c.to << " m" << c.method);
    ExpectTime(MxTimeConvertScale(MxTimeMake(c.value, c.from), c.to, c.method), c.expected, c.to,
               c.flags);
  }
  // Special values pass unchanged; a bad timescale gives invalid; overflow gives infinities.
  ExpectTime(MxTimeConvertScale(kMxTimeIndefinite, 10, 1), 0, 0, 17);
  ExpectTime(MxTimeConvertScale(MxTimeMake(1, 3), 0, 1), 0, 0, 0);
  ExpectTime(MxTimeConvertScale(MxTimeMake(INT64_MAX, 1), 1000, 1), 0, 0, 5);
  ExpectTime(MxTimeConvertScale(MxTimeMake(INT64_MIN, 1), 1000, 1), 0, 0, 9);
  // An exact conversion keeps an earlier rounded mark and the epoch.
  MxTime rounded{3, 10, 3, 7};
  ExpectTime(MxTimeConvertScale(rounded, 20, 1), 6, 20, 3, 7);
}

TEST(MxTime, AddAndSubtract) {
  ExpectTime(MxTimeAdd(MxTimeMake(1, 30), MxTimeMake(1, 25)), 11, 150, 1);
  ExpectTime(MxTimeSubtract(MxTimeMake(1, 25), MxTimeMake(1, 30)), 1, 150, 1);
  ExpectTime(MxTimeAdd(MxTimeMake(0, 30), MxTimeMake(7, 25)), 7, 25, 1);
  ExpectTime(MxTimeSubtract(MxTimeMake(0, 30), MxTimeMake(7, 25)), -7, 25, 1);
  // Timescales whose least common multiple is too large meet at 1000000000.
  MxTime sum = MxTimeAdd(MxTimeMake(1, 1000000007), MxTimeMake(1, 1000000009));
  EXPECT_EQ(sum.timescale, 1000000000);
  EXPECT_EQ(sum.flags, 3u);
  EXPECT_EQ(sum.value, 2);
  // Overflow halves the timescale, and at timescale 1 gives an infinity.
  MxTime halved = MxTimeAdd(MxTimeMake(INT64_MAX, 2), MxTimeMake(2, 2));
  EXPECT_EQ(halved.timescale, 1);
  ExpectTime(MxTimeAdd(MxTimeMake(INT64_MAX, 1), MxTimeMake(1, 1)), 0, 0, 5);
  ExpectTime(MxTimeAdd(MxTimeMake(INT64_MIN, 1), MxTimeMake(-1, 1)), 0, 0, 9);
  ExpectTime(MxTimeSubtract(MxTimeMake(INT64_MIN, 1), MxTimeMake(1, 1)), 0, 0, 9);
  ExpectTime(MxTimeSubtract(MxTimeMake(0, 1), MxTimeMake(INT64_MIN, 1)), 0, 0, 5);
  // Epochs: different non-zero epochs cannot be combined; otherwise the non-zero one is kept.
  MxTime e1{5, 1, 1, 1}, e2{7, 1, 1, 2}, e0{1, 1, 1, 0};
  ExpectTime(MxTimeAdd(e1, e2), 0, 0, 0);
  ExpectTime(MxTimeAdd(e0, e2), 8, 1, 1, 2);
}

TEST(MxTime, AddSpecialValues) {
  const MxTime inv = kMxTimeInvalid, pos = kMxTimePositiveInfinity, neg = kMxTimeNegativeInfinity,
               ind = kMxTimeIndefinite, one = MxTimeMake(1, 1);
  struct Case {
    MxTime a, b;
    uint32_t add, sub;  // flags of the results
  } cases[] = {
      {inv, one, 0, 0},   {one, inv, 0, 0},   {pos, neg, 0, 5}, {pos, pos, 5, 0},
      {neg, pos, 0, 9},   {neg, neg, 9, 0},   {one, pos, 5, 9}, {one, neg, 9, 5},
      {ind, one, 17, 17}, {one, ind, 17, 17}, {ind, pos, 5, 9},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(MxTimeAdd(c.a, c.b).flags, c.add);
    EXPECT_EQ(MxTimeSubtract(c.a, c.b).flags, c.sub);
  }
}

TEST(MxTime, Multiply) {
  ExpectTime(MxTimeMultiply(MxTimeMake(3, 10), 4), 12, 10, 1);
  ExpectTime(MxTimeMultiply(MxTimeMake(3, 10), -4), -12, 10, 1);
  ExpectTime(MxTimeMultiply(kMxTimePositiveInfinity, -1), 0, 0, 9);
  ExpectTime(MxTimeMultiply(kMxTimePositiveInfinity, 0), 0, 0, 5);
  ExpectTime(MxTimeMultiply(kMxTimeNegativeInfinity, -2), 0, 0, 5);
  ExpectTime(MxTimeMultiply(MxTimeMake(INT64_MAX / 2, 1), 4), 0, 0, 5);
  // Overflow halves the timescale until the product fits: 4 -> 2 (still too big) -> 1.
  ExpectTime(MxTimeMultiply(MxTimeMake(INT64_MAX / 2, 4), 4), int64_t{1} << 62, 1, 3);

  ExpectTime(MxTimeMultiplyByFloat64(MxTimeMake(10, 1), 2.0), 20, 1, 1);
  ExpectTime(MxTimeMultiplyByFloat64(MxTimeMake(10, 1), 0.25), 2500000000, 1000000000, 1);
  ExpectTime(MxTimeMultiplyByFloat64(MxTimeMake(3, 10), 0.5), 150000000, 1000000000, 1);
  ExpectTime(MxTimeMultiplyByFloat64(MxTimeMake(1, 3), 0.5), 166666667, 1000000000, 3);
  ExpectTime(MxTimeMultiplyByFloat64(kMxTimeNegativeInfinity, -1.0), 0, 0, 5);

  ExpectTime(MxTimeMultiplyByRatio(MxTimeMake(10, 1), 1, 3), 3, 1, 3);
  ExpectTime(MxTimeMultiplyByRatio(MxTimeMake(10, 1), 3, 2), 15, 1, 1);
  ExpectTime(MxTimeMultiplyByRatio(MxTimeMake(10, 1), 1, 0), 0, 0, 0);
}

TEST(MxTime, CompareOrdersSpecialValues) {
  const MxTime inv = kMxTimeInvalid, pos = kMxTimePositiveInfinity, neg = kMxTimeNegativeInfinity,
               ind = kMxTimeIndefinite, ten = MxTimeMake(10, 1);
  // negative infinity < numeric < indefinite < positive infinity < invalid
  const MxTime order[] = {neg, ten, ind, pos, inv};
  for (int i = 0; i < 5; i++) {
    for (int j = 0; j < 5; j++) {
      EXPECT_EQ(MxTimeCompare(order[i], order[j]), i < j ? -1 : (i > j ? 1 : 0)) << i << "," << j;
    }
  }
  EXPECT_EQ(MxTimeCompare(MxTimeMake(1, 3), MxTimeMake(333, 1000)), 1);
  EXPECT_EQ(MxTimeCompare(MxTimeMake(-1, 3), MxTimeMake(-333, 1000)), -1);
  EXPECT_EQ(MxTimeCompare(MxTimeMake(2, 4), MxTimeMake(1, 2)), 0);
  EXPECT_EQ(MxTimeCompare(MxTimeMake(-1, 1000), MxTimeMake(0, 1)), -1);
  EXPECT_EQ(MxTimeCompare(MxTimeMake(INT64_MIN, 1), MxTimeMake(INT64_MIN, 2)), -1);
  MxTime epoch2{5, 1, 1, 2}, epoch1{7, 1, 1, 1};
  EXPECT_EQ(MxTimeCompare(epoch2, epoch1), 1);
  // Ties give the second argument.
  MxTime a = MxTimeMake(1, 2), b = MxTimeMake(2, 4);
  EXPECT_EQ(MxTimeMinimum(a, b).timescale, 4);
  EXPECT_EQ(MxTimeMinimum(MxTimeMake(1, 4), b).timescale, 4);
}

TEST(MxTime, DictionaryRoundTrip) {
  MxTime t{-3003, 30000, 3, 9};
  MxDictionary d = MxTimeCopyAsDictionary(t);
  ExpectTime(MxTimeMakeFromDictionary(&d), -3003, 30000, 3, 9);
  d.erase("epoch");
  ExpectTime(MxTimeMakeFromDictionary(&d), 0, 0, 0);
  MxDictionary wide = MxTimeCopyAsDictionary(t);
  wide["timescale"] = MxValue(int64_t{1} << 40);  // does not fit 32 bits
  ExpectTime(MxTimeMakeFromDictionary(&wide), 0, 0, 0);
  ExpectTime(MxTimeMakeFromDictionary(nullptr), 0, 0, 0);
}

TEST(MxTime, Description) {
  EXPECT_EQ(MxTimeCopyDescription(MxTime{3003, 30000, 3, 0}), "{3003/30000 = 0.100, rounded}");
  EXPECT_EQ(MxTimeCopyDescription(MxTime{1, 2, 1, 5}), "{1/2 = 0.500, epoch=5}");
  EXPECT_EQ(MxTimeCopyDescription(MxTime{1, 2, 0x41, 0}), "{1/2 = 0.500, flags=0x00000041}");
  EXPECT_EQ(MxTimeCopyDescription(kMxTimeInvalid), "{INVALID}");
  EXPECT_EQ(MxTimeCopyDescription(kMxTimeIndefinite), "{INDEFINITE}");
  EXPECT_EQ(MxTimeCopyDescription(kMxTimePositiveInfinity), "{+INFINITY}");
  EXPECT_EQ(MxTimeCopyDescription(kMxTimeNegativeInfinity), "{-INFINITY}");
  EXPECT_EQ(MxTimeCopyDescription(MxTime{0, 0, 13, 0}), "{UNKNOWN}");
}

TEST(MxTime, RangeEnd) {
  MxTimeRange r{MxTimeMake(1, 2), MxTimeMake(1, 4)};
  ExpectTime(MxTimeRangeGetEnd(r), 3, 4, 1);
  r.duration.epoch = 1;
  ExpectTime(MxTimeRangeGetEnd(r), 0, 0, 0);
}

}  // namespace
