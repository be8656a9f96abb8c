#include "media/formats/movie/track_name.h"

#include <cstdint>

namespace {

// Length of the valid UTF-8 sequence at the start of `s`, or 0.
size_t ValidSequenceLength(std::string_view s) {
  const auto b = [&](size_t i) { return uint8_t(s[i]); };
  const uint8_t lead = b(0);
  size_t n;
  uint32_t min;
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) {
    n = 2;
    min = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    n = 3;
    min = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    n = 4;
    min = 0x10000;
  } else {
    return 0;
  }
  if (s.size() < n) return 0;
  uint32_t cp = lead & (0x7F >> n);
  for (size_t i = 1; i < n; ++i) {
    if ((b(i) & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (b(i) & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return n;
}

}  // namespace

std::string TrackNameFromUserData(std::string_view raw) {
  std::string name;
  name.reserve(raw.size());
  while (!raw.empty()) {
    const size_t n = ValidSequenceLength(raw);
    if (n == 0) {
      name += "\xEF\xBF\xBD";
      raw.remove_prefix(1);
      continue;
    }
    const uint8_t c = uint8_t(raw[0]);
    if (n == 1 && (c < 0x20 || c == 0x7F)) {
      name += ' ';
    } else if (n == 2 && c == 0xC2 && uint8_t(raw[1]) < 0xA0) {
      name += ' ';  // C1 control characters
    } else {
      name.append(raw.substr(0, n));
    }
    raw.remove_prefix(n);
  }
  return name;
}
