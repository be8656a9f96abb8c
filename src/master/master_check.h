// Checking a master playlist together with what it references on disk: the master's own rules,
// every URI it holds, and for each subtitle rendition its media playlist and the WebVTT segments
// listed there.
#pragma once

#include <string>
#include <vector>

#include "common/status.h"
#include "master/playlist_check.h"

struct MasterCheckReport {
  std::vector<PlaylistProblem> problems;
  // What could not be looked at (remote URIs, encrypted segments); not problems.
  std::vector<std::string> notices;
};

// Fails only when the master itself cannot be read; problems found are in `report`.
[[nodiscard]] OSStatus CheckMasterPlaylistFiles(const std::string& masterPath,
                                                MasterCheckReport* report);
