#include "media/formats/ttml/ttml_time_expression.h"

#include <cmath>
#include <cstdint>

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string_view Trim(std::string_view s) {
  size_t first = 0, end = s.size();
  while (first < end && IsSpace(s[first])) ++first;
  while (end > first && IsSpace(s[end - 1])) --end;
  return s.substr(first, end - first);
}

// Reads one or more digits at `*pos`; at most 15 are taken so the value stays exact.
std::optional<double> Digits(std::string_view s, size_t* pos, size_t exactCount = 0) {
  const size_t start = *pos;
  size_t at = start;  // kept apart from *pos, which a byte read could otherwise change
  double value = 0;
  while (at < s.size() && IsDigit(s[at])) {
    if (at - start >= 15) return std::nullopt;
    value = value * 10 + (s[at] - '0');
    ++at;
  }
  *pos = at;
  size_t count = at - start;
  if (count == 0 || (exactCount != 0 && count != exactCount)) return std::nullopt;
  return value;
}

// A "." followed by digits, read as a fraction of one; zero when there is no ".".
std::optional<double> Fraction(std::string_view s, size_t* pos) {
  if (*pos >= s.size() || s[*pos] != '.') return 0.0;
  const size_t start = *pos + 1;
  size_t at = start;
  double value = 0, scale = 1;
  while (at < s.size() && IsDigit(s[at])) {
    // Digits past the seventeenth cannot change a double.
    if (at - start < 17) {
      scale /= 10;
      value += (s[at] - '0') * scale;
    }
    ++at;
  }
  *pos = at;
  if (at == start) return std::nullopt;
  return value;
}

// A positive decimal number ("30", "2.5"), the whole of `s`.
std::optional<double> PositiveNumber(std::string_view s) {
  size_t pos = 0;
  std::optional<double> whole = Digits(s, &pos);
  if (!whole) return std::nullopt;
  std::optional<double> fraction = Fraction(s, &pos);
  if (!fraction || pos != s.size() || *whole + *fraction <= 0) return std::nullopt;
  return *whole + *fraction;
}

// A positive number without a fraction (a fraction of zeros is allowed), as rates are given.
std::optional<double> PositiveWholeNumber(std::string_view s) {
  std::optional<double> value = PositiveNumber(s);
  if (!value || *value != std::floor(*value)) return std::nullopt;
  return value;
}

std::optional<double> ClockTime(std::string_view s, const TimedTextRates& rates) {
  size_t pos = 0;
  std::optional<double> hours = Digits(s, &pos);
  if (!hours || pos < 2 || pos >= s.size() || s[pos++] != ':') return std::nullopt;
  std::optional<double> minutes = Digits(s, &pos, 2);
  if (!minutes || *minutes > 59 || pos >= s.size() || s[pos++] != ':') return std::nullopt;
  std::optional<double> seconds = Digits(s, &pos, 2);
  // 60 is a leap second.
  if (!seconds || *seconds > 60) return std::nullopt;
  double total = *hours * 3600 + *minutes * 60 + *seconds;
  if (pos < s.size() && s[pos] == ':') {
    ++pos;
    std::optional<double> frames = Digits(s, &pos);
    if (!frames || *frames >= std::ceil(rates.EffectiveFrameRate())) return std::nullopt;
    double subFrames = 0;
    if (pos < s.size() && s[pos] == '.') {
      ++pos;
      std::optional<double> sub = Digits(s, &pos);
      if (!sub || *sub >= rates.subFrameRate) return std::nullopt;
      subFrames = *sub;
    }
    total += (*frames + subFrames / rates.subFrameRate) / rates.EffectiveFrameRate();
  } else {
    std::optional<double> fraction = Fraction(s, &pos);
    if (!fraction) return std::nullopt;
    total += *fraction;
  }
  if (pos != s.size()) return std::nullopt;
  return total;
}

// The most common clock time, "hh:mm:ss.fff", read with the same arithmetic as ClockTime gives
// it. False when `s` has another shape or is out of range (left to ClockTime).
bool ReadShortClockTime(std::string_view s, double* seconds) {
  if (s.size() != 12 || s[2] != ':' || s[5] != ':' || s[8] != '.') return false;
  for (size_t i : {0u, 1u, 3u, 4u, 6u, 7u, 9u, 10u, 11u}) {
    if (!IsDigit(s[i])) return false;
  }
  auto twoDigits = [s](size_t i) { return (s[i] - '0') * 10.0 + (s[i + 1] - '0'); };
  double hours = twoDigits(0), minutes = twoDigits(3), wholeSeconds = twoDigits(6);
  if (minutes > 59 || wholeSeconds > 60) return false;
  double fraction = 0, scale = 1;
  for (size_t i = 9; i < 12; ++i) {
    scale /= 10;
    fraction += (s[i] - '0') * scale;
  }
  *seconds = hours * 3600 + minutes * 60 + wholeSeconds;
  *seconds += fraction;
  return true;
}

std::optional<double> OffsetTime(std::string_view s, const TimedTextRates& rates) {
  size_t pos = 0;
  std::optional<double> whole = Digits(s, &pos);
  if (!whole) return std::nullopt;
  std::optional<double> fraction = Fraction(s, &pos);
  if (!fraction) return std::nullopt;
  double count = *whole + *fraction;
  std::string_view metric = s.substr(pos);
  if (metric == "h") return count * 3600;
  if (metric == "m") return count * 60;
  if (metric == "s") return count;
  if (metric == "ms") return count / 1000;
  if (metric == "f") return count / rates.EffectiveFrameRate();
  if (metric == "t") return count / rates.tickRate;
  return std::nullopt;
}

}  // namespace

std::string_view ReadTimedTextRates(std::string_view frameRate, std::string_view multiplier,
                                    std::string_view subFrameRate, std::string_view tickRate,
                                    TimedTextRates* rates) {
  *rates = TimedTextRates{};
  frameRate = Trim(frameRate);
  if (!frameRate.empty()) {
    std::optional<double> value = PositiveWholeNumber(frameRate);
    if (!value) return "ttp:frameRate";
    rates->frameRate = *value;
  }
  multiplier = Trim(multiplier);
  if (!multiplier.empty()) {
    // Two positive integers: numerator and denominator, separated by whitespace.
    size_t gap = multiplier.find_first_of(" \t\r\n");
    if (gap == std::string_view::npos) return "ttp:frameRateMultiplier";
    std::optional<double> numerator = PositiveWholeNumber(multiplier.substr(0, gap));
    std::optional<double> denominator = PositiveWholeNumber(Trim(multiplier.substr(gap)));
    if (!numerator || !denominator) return "ttp:frameRateMultiplier";
    rates->frameRateMultiplier = *numerator / *denominator;
  }
  subFrameRate = Trim(subFrameRate);
  if (!subFrameRate.empty()) {
    std::optional<double> value = PositiveWholeNumber(subFrameRate);
    if (!value) return "ttp:subFrameRate";
    rates->subFrameRate = *value;
  }
  tickRate = Trim(tickRate);
  if (!tickRate.empty()) {
    std::optional<double> value = PositiveWholeNumber(tickRate);
    if (!value) return "ttp:tickRate";
    rates->tickRate = *value;
  } else if (!frameRate.empty()) {
    rates->tickRate = rates->EffectiveFrameRate() * rates->subFrameRate;
  }
  return {};
}

std::optional<double> ParseTimeExpression(std::string_view text, const TimedTextRates& rates) {
  std::string_view s = Trim(text);
  if (s.empty()) return std::nullopt;
  if (double seconds; ReadShortClockTime(s, &seconds)) return seconds;
  std::optional<double> seconds =
      s.find(':') != std::string_view::npos ? ClockTime(s, rates) : OffsetTime(s, rates);
  if (!seconds || !std::isfinite(*seconds)) return std::nullopt;
  return seconds;
}
