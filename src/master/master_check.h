// Checking a master playlist together with what it references on disk: the master's own rules,
// every URI it holds, and for each subtitle rendition its media playlist and the WebVTT segments
// listed there, all within one directory tree.
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

// Reads only files inside the directory `root` (the master's own directory when empty); a URI
// that leads elsewhere is a problem, named and not followed. Fails only when the master or the
// root cannot be read; problems found are in `report`.
//
// With `checkTiming`, also reads the start of every variant's first segment and the
// X-TIMESTAMP-MAP of every subtitle rendition's first segment: variants that start apart, and a
// rendition whose cues would show more than 1 ms off a variant of its group, are problems, given
// with line 0 (no line) for a rendition.
Status CheckMasterPlaylistFiles(const std::string& masterPath, const std::string& root,
                                bool checkTiming, MasterCheckReport* report);
