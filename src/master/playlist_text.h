// The line structure of a playlist file. A playlist is UTF-8 text; lines end in LF or CR LF.
// Every line keeps its own terminator so that a file can be written back byte for byte.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct PlaylistLine {
  std::string_view text;        // without its terminator
  std::string_view terminator;  // "\n", "\r\n", or empty for a last line without one
  size_t number = 0;            // 1-based
};

enum class PlaylistLineKind { kBlank, kTag, kComment, kUri };

// Splits `text` into lines; the views point into `text`.
std::vector<PlaylistLine> SplitPlaylistLines(std::string_view text);

PlaylistLineKind ClassifyPlaylistLine(std::string_view line);

// The tag name of a tag line ("#EXT-X-MEDIA" for "#EXT-X-MEDIA:TYPE=..."), else empty.
std::string_view PlaylistTagName(std::string_view line);
// What follows the tag name and its colon; empty when the tag has no value.
std::string_view PlaylistTagValue(std::string_view line);

// A playlist must be valid UTF-8 without a byte order mark and without control characters other
// than CR and LF. A TAB is let through: media playlists commonly end an empty EXTINF title with
// one, ours included, and every client reads it as white space. Returns an empty text when `text`
// obeys, else a description of the first offence, with its 1-based line number in `line`.
std::string FindPlaylistEncodingProblem(std::string_view text, size_t* line);
