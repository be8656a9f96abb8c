// Merge of a fragment into a master playlist, both hostile. Input: the first byte chooses
// --conform, then the master text, a NUL byte, the fragment text. A merge that succeeds must be
// idempotent: merging the same fragment into its result gives the same bytes. A rendition added
// to the hostile master must be found in its group again: adding it a second time is refused
// for its NAME.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "master/master_add.h"
#include "master/master_merge.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  MergeOptions options;
  options.conform = (data[0] & 1) != 0;
  std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
  size_t split = input.find('\0');
  std::string_view master = input.substr(0, split);
  std::vector<SubtitleFragment> fragments(1);
  fragments[0].name = "fragment";
  fragments[0].uriPrefix = "../subs/";
  if (split != std::string_view::npos) fragments[0].text = input.substr(split + 1);
  AddedRendition added;
  added.playlistName = "p.m3u8";
  added.playlistText = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n";
  added.uri = "p.m3u8";
  added.name = "Added";
  added.language = "en";
  MergeOptions chosen = options;
  chosen.group.clear();
  MergeOutcome once;
  if (AddSubtitleRendition("master", master, added, chosen, &once) == kNoErr) {
    MergeOutcome twice;
    if (AddSubtitleRendition("master", once.text, added, chosen, &twice) != kErrPlaylistRule)
      __builtin_trap();
  }

  MergeOutcome first;
  if (MergeSubtitleFragments("master", master, fragments, options, &first) != kNoErr) return 0;
  MergeOutcome second;
  if (MergeSubtitleFragments("master", first.text, fragments, options, &second) != kNoErr ||
      second.text != first.text)
    __builtin_trap();
  return 0;
}
