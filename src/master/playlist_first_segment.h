// The files of a local media playlist's first media segment: the segment itself and, for
// fragmented MP4, the init segment its EXT-X-MAP names.
#pragma once

#include <cstdint>
#include <string>

#include "common/status.h"

struct FirstSegmentFiles {
  std::string init;  // empty without EXT-X-MAP
  std::string segment;
  // The EXT-X-KEY in force for the segment: its METHOD (empty without a key, or NONE), its URI
  // as written and, when that URI is a relative reference, the key file's path; its IV
  // attribute as written (empty when absent), and the segment's media sequence number.
  std::string keyMethod;
  std::string keyUri;
  std::string keyFile;
  std::string keyIV;
  uint64_t mediaSequence = 0;
};

// True when the file starts with #EXTM3U (after an optional UTF-8 byte order mark).
bool LooksLikePlaylist(const std::string& path);

// Reads the media playlist at `path` and names its first segment's files as paths (relative
// URIs resolved against the playlist's directory). kErrPlaylistSyntax with `error` set for a
// master playlist, a playlist without segments, a URI that is not a local file, or byte ranges;
// errno values when the playlist cannot be read.
Status FindFirstSegmentFiles(const std::string& path, FirstSegmentFiles* files, std::string* error);
