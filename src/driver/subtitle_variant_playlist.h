// The subtitle variant playlist of a movie source: "#EXTM3U", then one
// "#EXT-X-MEDIA:TYPE=SUBTITLES" line per output stream, in the order the streams were made, for
// the operator to merge into a master playlist.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/status.h"

// One output stream as the variant playlist lists it. A field that is not set ends the list at
// that entry.
struct SubtitleVariantEntry {
  std::optional<std::string> trackName;
  std::optional<bool> isDefault;
  std::optional<std::string> languageCode;
  std::optional<bool> autoSelect;
  std::optional<bool> forced;
  std::optional<std::string> uri;
  std::string characteristics;  // the CHARACTERISTICS value; empty: no such attribute
};

// The accessibility characteristics that a track's content tags claim, as a CHARACTERISTICS
// value: transcribing spoken dialogue, then describing music and sound, each only when tagged
// (empty when neither is). Other tags do not count.
std::string AccessibilityCharacteristics(const std::vector<std::string>& contentTags);

// The file's text. A track name's double quotes become single quotes, its CRs and LFs spaces.
// CHARACTERISTICS, where an entry has them, stands just before the URI.
std::string FormatSubtitleVariantPlaylist(const std::vector<SubtitleVariantEntry>& entries);

// Writes `fileBase`/`subtitleVariantName` whole through a temporary file and a rename (a link at
// the name is replaced, never followed). A failure is reported and returned: it is the run's
// status, while the segments and media playlists already written stand.
Status WriteSubtitleVariantPlaylist(const char* fileBase, const char* subtitleVariantName,
                                    const std::vector<SubtitleVariantEntry>& entries);
