#include "driver/subtitle_variant_playlist.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "common/quotable_name.h"
#include "driver/track_paths.h"
#include "log/output.h"
#include "playlist/file_replacement.h"

namespace {
const char* YesNo(bool value) {
  return value ? "YES" : "NO";
}
}  // namespace

std::string AccessibilityCharacteristics(const std::vector<std::string>& contentTags) {
  std::string value;
  for (const char* name : {"public.accessibility.transcribes-spoken-dialog",
                           "public.accessibility.describes-music-and-sound"}) {
    if (std::find(contentTags.begin(), contentTags.end(), name) == contentTags.end()) continue;
    if (!value.empty()) value += ',';
    value += name;
  }
  return value;
}

std::string FormatSubtitleVariantPlaylist(const std::vector<SubtitleVariantEntry>& entries) {
  std::string text = "#EXTM3U\n";
  for (const SubtitleVariantEntry& e : entries) {
    if (!e.trackName || !e.isDefault || !e.languageCode || !e.autoSelect || !e.forced || !e.uri)
      break;
    // Languages and URIs go in as they are: the reader refuses language tags that could break
    // the line, and the options a URI is made from refuse control characters.
    text += "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"" +
            QuotableName(*e.trackName) + "\",DEFAULT=" + YesNo(*e.isDefault) +
            ",AUTOSELECT=" + YesNo(*e.autoSelect) + ",FORCED=" + YesNo(*e.forced) + ",LANGUAGE=\"" +
            *e.languageCode + "\",";
    if (!e.characteristics.empty()) text += "CHARACTERISTICS=\"" + e.characteristics + "\",";
    text += "URI=\"" + *e.uri + "\"\n";
  }
  return text;
}

Status WriteSubtitleVariantPlaylist(const char* fileBase, const char* subtitleVariantName,
                                    const std::vector<SubtitleVariantEntry>& entries) {
  std::string path;
  if (JoinPath(fileBase, subtitleVariantName, &path) != kNoErr) {
    // The driver checks this path before any output is made; this is the last guard.
    OutputMessage(0, "subtitle variant playlist path is too long; shorten -f or -s");
    return StatusFromErrno(ENAMETOOLONG);
  }
  // A link at the name is replaced like any file; only a real directory is refused.
  struct stat info;
  if (lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
    // Refused before anything is written, and the run keeps its status: the streams are whole.
    OutputMessage(0, "output path %s is a directory; need a file name", path.c_str());
    return kNoErr;
  }
  const std::string text = FormatSubtitleVariantPlaylist(entries);
  return ReplaceFileWithText(
      path.c_str(), "subtitle variant playlist",
      [&](FILE* file) { fwrite(text.data(), 1, text.size(), file); },
      "Failed to open a file for writing at path %s");
}
