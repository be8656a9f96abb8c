// The rule checks on hostile texts: a master playlist, a subtitle media playlist and a segment
// head, separated by NUL bytes. Attribute lists that parse must print back to the same text. The
// segment head is also read for its timestamp map and decrypted as an encrypted segment's start.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "master/attribute_list.h"
#include "master/playlist_check.h"
#include "master/segment_decryption.h"
#include "master/subtitle_timing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  std::string_view parts[3];
  for (std::string_view& part : parts) {
    size_t split = input.find('\0');
    part = input.substr(0, split);
    input = split == std::string_view::npos ? std::string_view() : input.substr(split + 1);
  }
  std::vector<PlaylistProblem> problems;
  std::vector<PlaylistReference> references;
  CheckMasterPlaylistText("master", parts[0], &problems, &references);
  CheckSubtitlePlaylistText("media", parts[1], &problems, &references);
  CheckWebVttSegmentHead("segment", parts[2], &problems);

  if (std::optional<TimestampMap> map = FindTimestampMap(parts[2])) {
    int64_t lateness = CueLateness(*map, 126000);
    if (lateness < -(int64_t{1} << 32) || lateness > (int64_t{1} << 32)) __builtin_trap();
  }
  std::array<uint8_t, 16> iv{};
  if (SegmentIV(parts[1].substr(0, 40), parts[2].size(), &iv)) {
    std::string plain;
    Status status =
        DecryptSegmentHead("0123456789abcdef", iv, parts[2], parts[2].size() % 2 == 0, &plain);
    if (status == kNoErr && plain.size() > parts[2].size()) __builtin_trap();
  }

  AttributeList list;
  std::string error;
  if (AttributeList::Parse(parts[0], &list, &error) == kNoErr && list.Text() != parts[0])
    __builtin_trap();
  return 0;
}
