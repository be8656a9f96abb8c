// Merging subtitle renditions into a master playlist. The renditions of one or more fragments
// (files of #EXT-X-MEDIA:TYPE=SUBTITLES lines) become one group; every variant stream refers to
// it; renditions of that group already in the master are replaced, so a second merge of the same
// fragments gives the same bytes; every other line of the master is kept byte for byte.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/status.h"

struct SubtitleFragment {
  std::string name;  // its path, for messages
  std::string text;
  std::string uriPrefix;  // leads from the merged master's directory to the fragment's
};

struct MergeOptions {
  std::string group = "subtitles";
  // Two rules that a movie's fragment may break on purpose: a forced variant of an enabled track
  // is DEFAULT=YES with AUTOSELECT=NO, and a movie may enable several tracks. Without `conform`
  // the lines are kept and a warning is given; with it, those renditions become DEFAULT=NO.
  bool conform = false;
};

struct MergeOutcome {
  std::string text;                // the merged master
  std::vector<std::string> notes;  // warnings and changes made by `conform`, one line each
  std::string error;               // why the merge was refused
};

// kErrPlaylistSyntax when the master or a fragment is not what it should be, kErrPlaylistRule
// when the merged master would break a rule; `outcome->error` then says where and why.
Status MergeSubtitleFragments(std::string_view masterName, std::string_view masterText,
                              const std::vector<SubtitleFragment>& fragments,
                              const MergeOptions& options, MergeOutcome* outcome);
