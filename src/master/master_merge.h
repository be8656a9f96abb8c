// Putting subtitle renditions into a master playlist as one group that every variant stream
// refers to, with every other line of the master kept byte for byte. `merge` replaces the group
// with the renditions of one or more fragments (files of #EXT-X-MEDIA:TYPE=SUBTITLES lines), so a
// second merge of the same fragments gives the same bytes; `add` puts one more rendition into
// the group (see master_add.h).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/status.h"
#include "master/rendition_rules.h"

struct SubtitleFragment {
  std::string name;  // its path, for messages
  std::string text;
  std::string uriPrefix;  // leads from the merged master's directory to the fragment's
};

struct MergeOptions {
  // The group. Empty: the master's subtitle group when it has exactly one, else "subtitles"; a
  // master with several subtitle groups is refused.
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

enum class GroupPlacement {
  kReplace,  // the group's renditions in the master give way; the new ones stand where the
             // first of them stood
  kAppend,   // the group's renditions stay; the new ones follow the last of them
};

// Puts `renditions` (subtitle renditions whose URIs are relative to the written master) into
// the group. A group the master does not have yet goes after the master's last #EXT-X-MEDIA line
// before the variant streams, else before the first variant stream. The rules are checked on
// the whole group but only the new renditions are refused, warned about or changed: what the
// master held before is `check`'s business. kErrPlaylistSyntax when the master is not what it
// should be, kErrPlaylistRule when a new rendition would break a rule, kErrBadArgument for a
// group ID that cannot be one; `outcome->error` then says where and why.
Status PlaceSubtitleRenditions(std::string_view masterName, std::string_view masterText,
                               std::vector<Rendition> renditions, GroupPlacement placement,
                               const MergeOptions& options, MergeOutcome* outcome);

// Replaces the group with the renditions of `fragments`, their URIs rebased onto the master.
Status MergeSubtitleFragments(std::string_view masterName, std::string_view masterText,
                              const std::vector<SubtitleFragment>& fragments,
                              const MergeOptions& options, MergeOutcome* outcome);
