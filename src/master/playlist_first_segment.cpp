#include "master/playlist_first_segment.h"

#include <optional>
#include <string_view>

#include "master/attribute_list.h"
#include "master/text_file.h"
#include "master/uri_reference.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

std::string BesidePlaylist(const std::string& playlist, const std::string& relative) {
  const size_t slash = playlist.rfind('/');
  return slash == std::string::npos ? relative : playlist.substr(0, slash + 1) + relative;
}

// `uri` as a path beside the playlist at `playlist`.
Status LocalPath(const std::string& playlist, std::string_view uri, std::string* path,
                 std::string* error) {
  std::string relative;
  if (!UriToLocalPath(uri, &relative)) {
    *error = "\"" + std::string(uri) + "\" is not a relative URI of a local file";
    return kErrPlaylistSyntax;
  }
  *path = BesidePlaylist(playlist, relative);
  return kNoErr;
}

}  // namespace

bool LooksLikePlaylist(const std::string& path) {
  std::string head;
  if (ReadFileHead(path, 10, &head) != kNoErr) return false;
  std::string_view text = head;
  if (StartsWith(text, kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  return StartsWith(text, "#EXTM3U");
}

Status FindFirstSegmentFiles(const std::string& path, FirstSegmentFiles* files,
                             std::string* error) {
  std::string text;
  if (Status status = ReadFileText(path, kMaxPlaylistBytes, &text)) return status;
  std::string_view rest = text;
  std::string mapUri;
  while (!rest.empty()) {
    const size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (StartsWith(line, "#EXT-X-STREAM-INF:")) {
      *error = "this is a master playlist; give one of its media playlists";
      return kErrPlaylistSyntax;
    }
    if (StartsWith(line, "#EXT-X-BYTERANGE:")) {
      *error = "segments given as byte ranges are not read";
      return kErrPlaylistSyntax;
    }
    if (StartsWith(line, "#EXT-X-MEDIA-SEQUENCE:")) {
      std::optional<uint64_t> sequence = ParseDecimalInteger(line.substr(22));
      if (!sequence) {
        *error = "EXT-X-MEDIA-SEQUENCE is not a whole number";
        return kErrPlaylistSyntax;
      }
      files->mediaSequence = *sequence;
      continue;
    }
    if (StartsWith(line, "#EXT-X-KEY:")) {
      AttributeList attributes;
      std::string attributeError;
      if (AttributeList::Parse(line.substr(11), &attributes, &attributeError) != kNoErr) {
        *error = "EXT-X-KEY: " + attributeError;
        return kErrPlaylistSyntax;
      }
      const std::string_view method = attributes.Value("METHOD");
      files->keyMethod = method == "NONE" ? "" : std::string(method);
      files->keyUri = attributes.Value("URI");
      files->keyIV = attributes.Value("IV");
      files->keyFile.clear();
      std::string relative;
      if (!files->keyMethod.empty() && UriToLocalPath(files->keyUri, &relative))
        files->keyFile = BesidePlaylist(path, relative);
      continue;
    }
    if (StartsWith(line, "#EXT-X-MAP:")) {
      AttributeList attributes;
      std::string attributeError;
      if (AttributeList::Parse(line.substr(11), &attributes, &attributeError) != kNoErr ||
          !attributes.Has("URI")) {
        *error = "EXT-X-MAP without a readable URI attribute";
        return kErrPlaylistSyntax;
      }
      if (attributes.Has("BYTERANGE")) {
        *error = "an EXT-X-MAP with a byte range is not read";
        return kErrPlaylistSyntax;
      }
      mapUri = attributes.Value("URI");
      continue;
    }
    if (line.empty() || line[0] == '#') continue;
    if (!mapUri.empty())
      if (Status status = LocalPath(path, mapUri, &files->init, error)) return status;
    return LocalPath(path, line, &files->segment, error);
  }
  *error = "the playlist has no media segment";
  return kErrPlaylistSyntax;
}
