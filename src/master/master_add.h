// Adding one subtitle rendition, for a media playlist such as hlsvtt makes from a WebVTT source,
// to a master playlist: the rendition joins its group after the members already there, and
// every variant stream refers to the group.
#pragma once

#include <string>
#include <string_view>

#include "common/status.h"
#include "master/master_merge.h"

struct AddedRendition {
  std::string playlistName;     // the media playlist's path, for messages
  std::string playlistText;     // read to make sure it is a media playlist
  std::string uri;              // leads from the written master to the media playlist
  std::string name;             // made quotable: '"' becomes '\'', CR and LF a space
  std::string language;         // a well-formed language tag
  std::string characteristics;  // empty, or a list FindCharacteristicsProblem accepts
  bool isDefault = false;       // DEFAULT=YES, and AUTOSELECT=YES with it
  bool autoselect = false;
  bool forced = false;
};

// The rendition's line is
//   #EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID="<group>",NAME="<name>",DEFAULT=<YES|NO>,
//   AUTOSELECT=<YES|NO>,FORCED=<YES|NO>,LANGUAGE="<language>"[,CHARACTERISTICS="<list>"],
//   URI="<uri>"
// kErrBadArgument for a name, language tag, list of characteristics or group that cannot be
// used, kErrPlaylistSyntax when the master or the media playlist is not what it should be,
// kErrPlaylistRule when the rendition would break a rule of its group (a NAME that is taken);
// `outcome->error` then says why.
Status AddSubtitleRendition(std::string_view masterName, std::string_view masterText,
                            const AddedRendition& added, const MergeOptions& options,
                            MergeOutcome* outcome);
