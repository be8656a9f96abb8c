// Time expressions of a timed-text document: clock times ("hh:mm:ss", "hh:mm:ss.fraction",
// "hh:mm:ss:frames[.subframes]") and offset times (a count with one of the metrics h, m, s, ms,
// f, t), read against the document's frame, sub-frame and tick rates.
#pragma once

#include <optional>
#include <string_view>

struct TimedTextRates {
  double frameRate = 30;  // frames per second before the multiplier
  double frameRateMultiplier = 1;
  double subFrameRate = 1;  // sub-frames per frame
  double tickRate = 1;      // ticks per second

  double EffectiveFrameRate() const { return frameRate * frameRateMultiplier; }
};

// Reads the rates from the root element's parameter attributes (each may be empty when absent).
// A tick rate that is not given is the effective frame rate times the sub-frame rate when a frame
// rate is given, else one tick a second. Returns the name of the first attribute that is
// malformed or out of range, or an empty view when all are usable.
std::string_view ReadTimedTextRates(std::string_view frameRate, std::string_view multiplier,
                                    std::string_view subFrameRate, std::string_view tickRate,
                                    TimedTextRates* rates);

// The seconds a time expression stands for, or nothing when it is not a time expression, a
// field is out of range (minutes past 59, seconds past 60, a frame number at or past the frame
// rate, a sub-frame number at or past the sub-frame rate) or the result is not finite. Whitespace
// around the expression is allowed.
std::optional<double> ParseTimeExpression(std::string_view text, const TimedTextRates& rates);
