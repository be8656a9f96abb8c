#include "master/subtitle_timing.h"

#include <climits>
#include <cstdio>

#include "common/mpegts_clock.h"
#include "master/attribute_list.h"
#include "master/playlist_text.h"

namespace {

constexpr auto kClockWrap = static_cast<int64_t>(kMpegtsClockTicks);

// A WebVTT timestamp, [hours:]minutes:seconds.thousandths with hours of two digits or more, in
// milliseconds.
std::optional<uint64_t> ParseCueTime(std::string_view text) {
  const size_t point = text.rfind('.');
  if (point == std::string_view::npos || text.size() - point != 4) return std::nullopt;
  std::optional<uint64_t> millis = ParseDecimalInteger(text.substr(point + 1));
  const std::string_view clock = text.substr(0, point);
  const size_t last = clock.rfind(':');
  if (!millis || last == std::string_view::npos) return std::nullopt;
  const size_t first = clock.find(':');
  const size_t minutesAt = first == last ? 0 : first + 1;
  std::optional<uint64_t> hours = first == last ? 0 : ParseDecimalInteger(clock.substr(0, first));
  std::string_view minutesText = clock.substr(minutesAt, last - minutesAt);
  std::string_view secondsText = clock.substr(last + 1);
  std::optional<uint64_t> minutes = ParseDecimalInteger(minutesText);
  std::optional<uint64_t> seconds = ParseDecimalInteger(secondsText);
  if (!hours || !minutes || !seconds || (first != last && first < 2) || minutesText.size() != 2 ||
      secondsText.size() != 2 || *minutes >= 60 || *seconds >= 60 ||
      *hours >= UINT64_MAX / 3600000 - 1)
    return std::nullopt;
  return *hours * 3600000 + *minutes * 60000 + *seconds * 1000 + *millis;
}

}  // namespace

std::optional<TimestampMap> ParseTimestampMap(std::string_view value) {
  const size_t comma = value.find(',');
  if (comma == std::string_view::npos) return std::nullopt;
  std::optional<uint64_t> mpegts, local;
  for (std::string_view part : {value.substr(0, comma), value.substr(comma + 1)}) {
    if (part.starts_with("MPEGTS:") && !mpegts)
      mpegts = ParseDecimalInteger(part.substr(7));
    else if (part.starts_with("LOCAL:") && !local)
      local = ParseCueTime(part.substr(6));
    else
      return std::nullopt;
  }
  if (!mpegts || !local) return std::nullopt;
  return TimestampMap{*mpegts, *local};
}

std::optional<TimestampMap> FindTimestampMap(std::string_view head) {
  if (head.starts_with("\xEF\xBB\xBF")) head.remove_prefix(3);
  if (!head.starts_with("WEBVTT")) return std::nullopt;
  for (const PlaylistLine& line : SplitPlaylistLines(head)) {
    if (line.number == 1) continue;
    if (line.text.empty()) break;  // the header block ends at the first blank line
    if (line.text.starts_with("X-TIMESTAMP-MAP=")) return ParseTimestampMap(line.text.substr(16));
  }
  return std::nullopt;
}

int64_t CueLateness(const TimestampMap& map, int64_t start) {
  // Every term is reduced modulo 2^33 first, so no sum below can overflow.
  const auto wrap = [](int64_t v) { return ((v % kClockWrap) + kClockWrap) % kClockWrap; };
  const int64_t mpegts = static_cast<int64_t>(map.mpegts % static_cast<uint64_t>(kClockWrap));
  const int64_t local =
      static_cast<int64_t>(map.localMilliseconds % static_cast<uint64_t>(kClockWrap) * 90 %
                           static_cast<uint64_t>(kClockWrap));
  int64_t lateness = wrap(mpegts - local - wrap(start));
  if (lateness >= kClockWrap / 2) lateness -= kClockWrap;
  return lateness;
}

std::string DescribeCueLateness(int64_t lateness, int64_t start, const std::string& against) {
  const uint64_t magnitude =
      lateness < 0 ? 0 - static_cast<uint64_t>(lateness) : static_cast<uint64_t>(lateness);
  const uint64_t milliseconds = (magnitude + 45) / 90;
  char text[160];
  int length = snprintf(text, sizeof text, "cues will show %llu.%03llu s %s",
                        static_cast<unsigned long long>(milliseconds / 1000),
                        static_cast<unsigned long long>(milliseconds % 1000),
                        lateness < 0 ? "early" : "late");
  std::string message(text, static_cast<size_t>(length));
  if (!against.empty()) message += " against " + against;
  message += "; ";
  if (start >= INT32_MIN && start <= INT32_MAX)
    message += "segment again with -m " + std::to_string(start);
  else if (start >= 0 && start < kClockWrap)
    message += std::string("segment again with --") + kTimestampMapMpegtsOption + "=" +
               std::to_string(start);
  else
    message += "no option of hlsvtt sets MPEGTS to " + std::to_string(start);
  return message;
}
