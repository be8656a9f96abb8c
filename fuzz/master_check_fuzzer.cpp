// The rule checks on hostile texts: a master playlist, a subtitle media playlist and a segment
// head, separated by NUL bytes. Attribute lists that parse must print back to the same text.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "master/attribute_list.h"
#include "master/playlist_check.h"

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

  AttributeList list;
  std::string error;
  if (AttributeList::Parse(parts[0], &list, &error) == kNoErr && list.Text() != parts[0])
    __builtin_trap();
  return 0;
}
