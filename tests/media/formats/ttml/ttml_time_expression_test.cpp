// Time expressions and the rates they are read against.
#include "media/formats/ttml/ttml_time_expression.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

TEST(TimeExpression, ClockAndOffsetTimes) {
  struct Case {
    const char* expression;
    const char* frameRate;  // the rate attributes of the root element, "" when absent
    const char* multiplier;
    const char* subFrameRate;
    const char* tickRate;
    double want;  // negative: refused
  };
  const Case cases[] = {
      {"00:00:01", "", "", "", "", 1},
      {"01:02:03.5", "", "", "", "", 3723.5},
      {"100:00:00.25", "", "", "", "", 360000.25},
      {" 00:00:02.125 ", "", "", "", "", 2.125},
      {"00:00:01:15", "", "", "", "", 1.5},  // 30 frames a second by default
      {"00:00:01:12", "25", "", "", "", 1.48},
      {"00:00:00:29", "30", "1000 1001", "", "", 29 * 1001 / 30000.0},
      {"00:00:00:01.1", "25", "", "2", "", 1.5 / 25},
      {"10f", "25", "", "", "", 0.4},
      {"10f", "30", "1000 1001", "", "", 10 * 1001 / 30000.0},
      {"1.5h", "", "", "", "", 5400},
      {"2m", "", "", "", "", 120},
      {"2.5s", "", "", "", "", 2.5},
      {"1500ms", "", "", "", "", 1.5},
      {"20000000t", "", "", "", "10000000", 2},
      {"3t", "", "", "", "", 3},                  // one tick a second without a frame rate
      {"50t", "25", "", "", "", 2},               // ticks are frames ...
      {"100t", "25", "", "2", "", 2},             // ... or sub-frames
      {"30t", "30", "1000 1001", "", "", 1.001},  // at the effective frame rate
      {"0:00:01", "", "", "", "", -1},            // hours take two digits at least
      {"00:0:01", "", "", "", "", -1},            // minutes exactly two
      {"00:60:00", "", "", "", "", -1},           // minutes below 60
      {"00:00:60.06", "", "", "", "", 60.06},     // a leap second
      {"00:00:61", "", "", "", "", -1},
      {"00:00:01:25", "25", "", "", "", -1},  // frame number at the frame rate
      {"00:00:01:29", "30", "1000 1001", "", "", 1 + 29 * 1001 / 30000.0},
      {"00:00:01:01.2", "25", "", "2", "", -1},  // sub-frame number at the sub-frame rate
      {"00:00:01.", "", "", "", "", -1},
      {"00:00:01.5:02", "", "", "", "", -1},
      {"5", "", "", "", "", -1},  // an offset needs its metric
      {"5x", "", "", "", "", -1},
      {"-5s", "", "", "", "", -1},
      {".5s", "", "", "", "", -1},
      {"5 s", "", "", "", "", -1},
      {"", "", "", "", "", -1},
      {"9999999999999999s", "", "", "", "", -1},  // more digits than stay exact
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expression);
    TimedTextRates rates;
    ASSERT_EQ(ReadTimedTextRates(c.frameRate, c.multiplier, c.subFrameRate, c.tickRate, &rates),
              "");
    std::optional<double> seconds = ParseTimeExpression(c.expression, rates);
    if (c.want < 0) {
      EXPECT_FALSE(seconds) << *seconds;
    } else {
      ASSERT_TRUE(seconds);
      EXPECT_NEAR(*seconds, c.want, 1e-9);
    }
  }
}

TEST(TimeExpression, UnusableRatesAreNamed) {
  struct Case {
    const char* frameRate;
    const char* multiplier;
    const char* subFrameRate;
    const char* tickRate;
    const char* want;
  };
  const Case cases[] = {
      {"0", "", "", "", "ttp:frameRate"},
      {"29.97", "", "", "", "ttp:frameRate"},
      {"25", "1000", "", "", "ttp:frameRateMultiplier"},
      {"25", "1000 0", "", "", "ttp:frameRateMultiplier"},
      {"25", "1 1.5", "", "", "ttp:frameRateMultiplier"},
      {"", "", "x", "", "ttp:subFrameRate"},
      {"", "", "", "-1", "ttp:tickRate"},
      {"", "", "", "10000000", ""},
  };
  for (const Case& c : cases) {
    TimedTextRates rates;
    EXPECT_EQ(ReadTimedTextRates(c.frameRate, c.multiplier, c.subFrameRate, c.tickRate, &rates),
              c.want)
        << c.frameRate << "|" << c.multiplier << "|" << c.subFrameRate << "|" << c.tickRate;
  }
}

// "hh:mm:ss.fff" has a quicker road than other clock times; it must give exactly the same double
// as the same time written so that it takes the other one (a third digit of hours, a fourth of
// the fraction), and refuse the same ranges.
TEST(TimeExpression, ShortClockTimesMatchTheLongForm) {
  TimedTextRates rates;
  int checked = 0;
  for (int hours : {0, 1, 13, 99}) {
    for (int minutes : {0, 7, 59, 60}) {
      for (int seconds : {0, 1, 37, 59, 60, 61}) {
        for (int ms = 0; ms < 1000; ms += 7) {
          char shortForm[32], longForm[32];
          std::snprintf(shortForm, sizeof shortForm, "%02d:%02d:%02d.%03d", hours, minutes, seconds,
                        ms);
          std::snprintf(longForm, sizeof longForm, "0%02d:%02d:%02d.%03d0", hours, minutes, seconds,
                        ms);
          std::optional<double> quick = ParseTimeExpression(shortForm, rates);
          std::optional<double> general = ParseTimeExpression(longForm, rates);
          ASSERT_EQ(quick.value_or(-1), general.value_or(-1)) << shortForm;
          checked += quick.has_value();
        }
      }
    }
  }
  EXPECT_EQ(checked, 4 * 3 * 5 * 143);
}

}  // namespace
