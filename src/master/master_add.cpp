#include "master/master_add.h"

#include "common/quotable_name.h"
#include "master/playlist_tags.h"
#include "master/playlist_text.h"
#include "media/formats/movie/language_code.h"

namespace {

Status Refuse(MergeOutcome* outcome, Status status, std::string message) {
  outcome->error = std::move(message);
  return status;
}

// A media playlist: UTF-8 text starting with #EXTM3U, with a target duration and no tag that
// belongs in a master playlist.
Status CheckMediaPlaylist(const std::string& name, std::string_view text, MergeOutcome* outcome) {
  size_t line = 0;
  std::string problem = FindPlaylistEncodingProblem(text, &line);
  if (!problem.empty())
    return Refuse(outcome, kErrPlaylistSyntax,
                  name + ":" + std::to_string(line) + ": the playlist " + problem);
  std::vector<PlaylistLine> lines = SplitPlaylistLines(text);
  if (lines.empty() || lines[0].text != "#EXTM3U")
    return Refuse(outcome, kErrPlaylistSyntax,
                  name + ":1: not a playlist (the first line is not #EXTM3U)");
  bool targetDuration = false;
  for (const PlaylistLine& l : lines) {
    std::string_view tag = PlaylistTagName(l.text);
    if (IsMasterPlaylistTag(tag))
      return Refuse(outcome, kErrPlaylistSyntax,
                    name + ":" + std::to_string(l.number) + ": not a media playlist (" +
                        std::string(tag) + " belongs in a master playlist)");
    targetDuration = targetDuration || tag == "#EXT-X-TARGETDURATION";
  }
  if (!targetDuration)
    return Refuse(outcome, kErrPlaylistSyntax,
                  name + ": not a media playlist (no #EXT-X-TARGETDURATION)");
  return kNoErr;
}

const char* YesNo(bool value) {
  return value ? "YES" : "NO";
}

}  // namespace

Status AddSubtitleRendition(std::string_view masterName, std::string_view masterText,
                            const AddedRendition& added, const MergeOptions& options,
                            MergeOutcome* outcome) {
  *outcome = {};
  const std::string name = QuotableName(added.name);
  if (name.empty()) return Refuse(outcome, kErrBadArgument, "the NAME is empty");
  size_t line = 0;
  std::string problem = FindPlaylistEncodingProblem(name, &line);
  if (!problem.empty()) return Refuse(outcome, kErrBadArgument, "the NAME " + problem);
  if (!IsWellFormedLanguageTag(added.language))
    return Refuse(outcome, kErrBadArgument,
                  "\"" + added.language +
                      "\" is not a well-formed language tag (such as en, pt-BR, zh-Hant, "
                      "sr-Latn-RS or de-CH-1996)");
  if (!added.characteristics.empty()) {
    problem = FindCharacteristicsProblem(added.characteristics);
    if (!problem.empty()) return Refuse(outcome, kErrBadArgument, "CHARACTERISTICS: " + problem);
  }
  if (Status status = CheckMediaPlaylist(added.playlistName, added.playlistText, outcome))
    return status;

  Rendition rendition;
  rendition.file = "the added rendition";
  AttributeList& a = rendition.attributes;
  a.Set("TYPE", "SUBTITLES", false);
  a.Set("GROUP-ID", options.group, true);  // the group chosen is filled in when it is placed
  a.Set("NAME", name, true);
  a.Set("DEFAULT", YesNo(added.isDefault), false);
  a.Set("AUTOSELECT", YesNo(added.isDefault || added.autoselect), false);
  a.Set("FORCED", YesNo(added.forced), false);
  a.Set("LANGUAGE", added.language, true);
  if (!added.characteristics.empty()) a.Set("CHARACTERISTICS", added.characteristics, true);
  a.Set("URI", added.uri, true);
  std::vector<Rendition> renditions;
  renditions.push_back(std::move(rendition));
  return PlaceSubtitleRenditions(masterName, masterText, std::move(renditions),
                                 GroupPlacement::kAppend, options, outcome);
}
