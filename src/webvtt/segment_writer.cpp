#include "webvtt/segment_writer.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "common/numeric.h"
#include "media/formats/webvtt/webvtt_parser.h"

namespace {
// Appends v in decimal with at least minWidth digits (zero-padded), as "%0<minWidth>u" does.
char* AppendUnsigned(char* out, uint32_t v, int minWidth) {
  char digits[10];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v != 0);
  while (n < minWidth) digits[n++] = '0';
  while (n > 0) *out++ = digits[--n];
  return out;
}
}  // namespace

int FormatWebVTTTimestamp(double t, char* text) {
  // Every field truncates; the milliseconds come from the whole time, so a time like 1.001
  // (just below 1001 ms in binary) prints 00:00:01.000. No step rounds.
  const int64_t totalMs = TruncateToInt64(t * 1000.0);
  const uint32_t hours = TruncateToUint32(t / 3600.0);
  const double rest = t - static_cast<double>(hours * 3600u);
  const uint32_t minutes = TruncateToUint32(rest / 60.0);
  const uint32_t seconds = TruncateToUint32(rest - minutes * 60);
  const uint32_t ms =
      static_cast<uint32_t>(totalMs) - hours * 3600000u - minutes * 60000u - seconds * 1000u;
  // "%02u:%02u:%02u.%03u" into 20 bytes, formatted by hand: this runs twice per cue written.
  char full[48];
  char* p = AppendUnsigned(full, hours, 2);
  *p++ = ':';
  p = AppendUnsigned(p, minutes, 2);
  *p++ = ':';
  p = AppendUnsigned(p, seconds, 2);
  *p++ = '.';
  p = AppendUnsigned(p, ms, 3);
  const int length = static_cast<int>(p - full);
  const int kept = length < 19 ? length : 19;  // what a 20-byte buffer holds
  memcpy(text, full, static_cast<size_t>(kept));
  text[kept] = '\0';
  return kept;
}

Status WriteTimestamp(ChunkFile* chunk, double seconds) {
  char text[20];
  int length = FormatWebVTTTimestamp(seconds, text);
  return ChunkFileWriteData(chunk, text, static_cast<size_t>(length));
}

namespace {
// Writes the pieces in order and stops at the first failure.
Status WriteAll(ChunkFile* chunk, std::initializer_list<std::string_view> pieces) {
  for (std::string_view piece : pieces) {
    if (Status status = ChunkFileWriteData(chunk, piece.data(), piece.size())) return status;
  }
  return kNoErr;
}

}  // namespace

Status WriteSegmentHeader(ChunkFile* chunk, uint64_t mpegts) {
  char line[64];
  int length = snprintf(line, sizeof line, "X-TIMESTAMP-MAP=MPEGTS:%" PRIu64 ",LOCAL:", mpegts);
  char zero[20];
  int zeroLength = FormatWebVTTTimestamp(0, zero);
  return WriteAll(chunk, {"WEBVTT\n", std::string_view(line, static_cast<size_t>(length)),
                          std::string_view(zero, static_cast<size_t>(zeroLength)), "\n\n"});
}

Status WriteCue(ChunkFile* chunk, const WebVTTCueStore& store, const WebVTTCueRecord& cue) {
  Status status = kNoErr;
  if (cue.identifierLength != 0) status = WriteAll(chunk, {store.Identifier(cue), "\n"});
  char start[20], end[20];
  const int startLength = FormatWebVTTTimestamp(cue.start, start);
  const int endLength = FormatWebVTTTimestamp(cue.end, end);
  if (status == kNoErr) {
    status = WriteAll(chunk, {std::string_view(start, static_cast<size_t>(startLength)), " --> ",
                              std::string_view(end, static_cast<size_t>(endLength))});
  }
  if (status == kNoErr && cue.settingsLength != 0)
    status = WriteAll(chunk, {" ", store.Settings(cue)});
  if (status == kNoErr) status = WriteAll(chunk, {"\n", store.Payload(cue), "\n\n"});
  return status;
}
