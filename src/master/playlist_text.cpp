#include "master/playlist_text.h"

#include <unicode/utf8.h>

#include <cstdint>
#include <cstdio>

std::vector<PlaylistLine> SplitPlaylistLines(std::string_view text) {
  std::vector<PlaylistLine> lines;
  size_t start = 0;
  size_t number = 1;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    PlaylistLine line;
    line.number = number++;
    if (end == std::string_view::npos) {
      line.text = text.substr(start);
      start = text.size();
    } else {
      size_t textEnd = (end > start && text[end - 1] == '\r') ? end - 1 : end;
      line.text = text.substr(start, textEnd - start);
      line.terminator = text.substr(textEnd, end + 1 - textEnd);
      start = end + 1;
    }
    lines.push_back(line);
  }
  return lines;
}

PlaylistLineKind ClassifyPlaylistLine(std::string_view line) {
  if (line.empty()) return PlaylistLineKind::kBlank;
  if (line.starts_with("#EXT")) return PlaylistLineKind::kTag;
  if (line[0] == '#') return PlaylistLineKind::kComment;
  return PlaylistLineKind::kUri;
}

std::string_view PlaylistTagName(std::string_view line) {
  if (ClassifyPlaylistLine(line) != PlaylistLineKind::kTag) return {};
  return line.substr(0, line.find(':'));
}

std::string_view PlaylistTagValue(std::string_view line) {
  size_t colon = line.find(':');
  if (colon == std::string_view::npos) return {};
  return line.substr(colon + 1);
}

std::string FindPlaylistEncodingProblem(std::string_view text, size_t* line) {
  *line = 1;
  if (text.starts_with("\xEF\xBB\xBF")) return "starts with a byte order mark";
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  int32_t length = text.size() > INT32_MAX ? INT32_MAX : static_cast<int32_t>(text.size());
  int32_t offset = 0;
  while (offset < length) {
    UChar32 c;
    U8_NEXT(bytes, offset, length, c);
    if (c < 0) return "is not valid UTF-8";
    if (c == '\n') {
      ++*line;
    } else if (c != '\r' && c != '\t' && (c < 0x20 || (c >= 0x7F && c <= 0x9F))) {
      char description[64];
      snprintf(description, sizeof description, "holds the control character U+%04X",
               static_cast<unsigned>(c));
      return description;
    }
  }
  if (length < static_cast<int64_t>(text.size())) return "is too large";
  return {};
}
