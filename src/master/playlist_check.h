// Rule checks on the texts of a master playlist, of a subtitle media playlist and of the head of
// a WebVTT segment. Each check appends one problem per broken rule and, for playlists, the URIs
// that the caller should follow.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct PlaylistProblem {
  std::string file;
  size_t line = 0;
  std::string message;
};

struct PlaylistReference {
  std::string uri;
  size_t line = 0;
  bool subtitles = false;  // master: the media playlist of a subtitle rendition
  bool encrypted = false;  // media playlist: the segment is under an EXT-X-KEY other than NONE
  bool variant = false;    // master: the media playlist of an #EXT-X-STREAM-INF
  // master: the GROUP-ID of a rendition, the SUBTITLES group of a variant (empty when none)
  std::string group;
};

void CheckMasterPlaylistText(const std::string& name, std::string_view text,
                             std::vector<PlaylistProblem>* problems,
                             std::vector<PlaylistReference>* references);

void CheckSubtitlePlaylistText(const std::string& name, std::string_view text,
                               std::vector<PlaylistProblem>* problems,
                               std::vector<PlaylistReference>* segments);

// `head` is the start of the segment file, long enough to hold its header block.
void CheckWebVttSegmentHead(const std::string& name, std::string_view head,
                            std::vector<PlaylistProblem>* problems);
