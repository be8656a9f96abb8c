#include "driver/subtitle_variant_playlist.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "driver/track_paths.h"
#include "log/output.h"

namespace {
const char* YesNo(bool value) {
  return value ? "YES" : "NO";
}
}  // namespace

std::string FormatSubtitleVariantPlaylist(const std::vector<SubtitleVariantEntry>& entries) {
  std::string text = "#EXTM3U\n";
  for (const SubtitleVariantEntry& e : entries) {
    if (!e.trackName || !e.isDefault || !e.languageCode || !e.autoSelect || !e.forced || !e.uri)
      break;
    // Names, languages and URIs go in as they are; the reader refuses language tags that could
    // break the line, and track names hold no control characters.
    text += "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"" + *e.trackName +
            "\",DEFAULT=" + YesNo(*e.isDefault) + ",AUTOSELECT=" + YesNo(*e.autoSelect) +
            ",FORCED=" + YesNo(*e.forced) + ",LANGUAGE=\"" + *e.languageCode + "\",URI=\"" +
            *e.uri + "\"\n";
  }
  return text;
}

void WriteSubtitleVariantPlaylist(const char* fileBase, const char* subtitleVariantName,
                                  const std::vector<SubtitleVariantEntry>& entries) {
  std::string path;
  if (JoinPath(fileBase, subtitleVariantName, &path) != kNoErr) {
    // The driver checks this path before any output is made; this is the last guard.
    OutputMessage(0, "subtitle variant playlist path is too long; shorten -f or -s");
    return;
  }
  struct stat info;
  if (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
    OutputMessage(0, "output path %s is a directory; need a file name", path.c_str());
    return;
  }
  FILE* file = fopen(path.c_str(), "w");
  if (file == nullptr) {
    OutputMessage(0, "Failed to open a file for writing at path %s", path.c_str());
    return;
  }
  const std::string text = FormatSubtitleVariantPlaylist(entries);
  const bool written = fwrite(text.data(), 1, text.size(), file) == text.size();
  const int error = errno;
  if (fclose(file) != 0 || !written) {
    OutputMessage(0, "Failed to write the subtitle variant playlist %s: %s", path.c_str(),
                  strerror(written ? errno : error));
  }
}
