#include "master/master_merge.h"

#include <algorithm>
#include <optional>

#include "master/attribute_list.h"
#include "master/playlist_tags.h"
#include "master/playlist_text.h"
#include "master/uri_reference.h"

namespace {

constexpr std::string_view kMediaTag = "#EXT-X-MEDIA";
constexpr std::string_view kStreamTag = "#EXT-X-STREAM-INF";
constexpr std::string_view kDefaultGroup = "subtitles";

// "file:line", or the file alone for a rendition that was not read from a file.
std::string Where(std::string_view file, size_t line) {
  return line == 0 ? std::string(file) : std::string(file) + ":" + std::to_string(line);
}

Status Refuse(MergeOutcome* outcome, Status status, std::string message) {
  outcome->error = std::move(message);
  return status;
}

Status CheckEncoding(std::string_view name, std::string_view text, MergeOutcome* outcome) {
  size_t line = 0;
  std::string problem = FindPlaylistEncodingProblem(text, &line);
  if (problem.empty()) return kNoErr;
  return Refuse(outcome, kErrPlaylistSyntax, Where(name, line) + ": the playlist " + problem);
}

// Reads the renditions of one fragment, rebased onto the master.
Status ReadFragment(const SubtitleFragment& fragment, std::vector<Rendition>* renditions,
                    MergeOutcome* outcome) {
  if (Status status = CheckEncoding(fragment.name, fragment.text, outcome)) return status;
  size_t before = renditions->size();
  for (const PlaylistLine& line : SplitPlaylistLines(fragment.text)) {
    PlaylistLineKind kind = ClassifyPlaylistLine(line.text);
    if (kind == PlaylistLineKind::kBlank || kind == PlaylistLineKind::kComment) continue;
    if (line.text == "#EXTM3U" && line.number == 1) continue;
    std::string where = Where(fragment.name, line.number);
    if (PlaylistTagName(line.text) != kMediaTag)
      return Refuse(outcome, kErrPlaylistSyntax,
                    where +
                        ": not a subtitle rendition line (a fragment holds only "
                        "#EXT-X-MEDIA:TYPE=SUBTITLES lines)");
    Rendition rendition;
    std::string error;
    if (AttributeList::Parse(PlaylistTagValue(line.text), &rendition.attributes, &error))
      return Refuse(outcome, kErrPlaylistSyntax, where + ": #EXT-X-MEDIA: " + error);
    const PlaylistAttribute* type = rendition.attributes.Find("TYPE");
    if (!type || type->quoted || type->value != "SUBTITLES")
      return Refuse(outcome, kErrPlaylistSyntax, where + ": not a TYPE=SUBTITLES rendition");
    if (const PlaylistAttribute* uri = rendition.attributes.Find("URI"))
      rendition.attributes.Set("URI", RebaseUri(fragment.uriPrefix, uri->value), true);
    rendition.file = fragment.name;
    rendition.line = line.number;
    renditions->push_back(std::move(rendition));
  }
  if (renditions->size() == before)
    return Refuse(outcome, kErrPlaylistSyntax,
                  fragment.name + ": holds no #EXT-X-MEDIA:TYPE=SUBTITLES line");
  return kNoErr;
}

std::string Describe(const Rendition& r) {
  return Where(r.file, r.line) + " \"" + std::string(r.attributes.Value("NAME")) + "\"";
}

// Applies the rules to the group, whose new renditions start at `firstNew`: breaks the caller
// may choose to keep become warnings (or are mended with `conform`); any other break refuses.
Status ApplyRules(std::vector<Rendition>* renditions, size_t firstNew, const std::string& group,
                  bool conform, MergeOutcome* outcome) {
  if (conform) {
    for (size_t i = firstNew; i < renditions->size(); i++) {
      Rendition& r = (*renditions)[i];
      if (AttributeIsYes(r.attributes, "DEFAULT") && r.attributes.Has("AUTOSELECT") &&
          !AttributeIsYes(r.attributes, "AUTOSELECT")) {
        r.attributes.Set("DEFAULT", "NO", false);
        outcome->notes.push_back("changed " + Describe(r) +
                                 " to DEFAULT=NO: DEFAULT=YES needs AUTOSELECT=YES");
      }
    }
    bool seenDefault = false;
    for (size_t i = 0; i < renditions->size(); i++) {
      Rendition& r = (*renditions)[i];
      if (!AttributeIsYes(r.attributes, "DEFAULT")) continue;
      if (seenDefault && i >= firstNew) {
        r.attributes.Set("DEFAULT", "NO", false);
        outcome->notes.push_back("changed " + Describe(r) + " to DEFAULT=NO: group \"" + group +
                                 "\" already has a DEFAULT=YES rendition");
      }
      seenDefault = true;
    }
  }
  for (const RenditionFinding& finding : CheckRenditions(*renditions)) {
    if (finding.index < firstNew) continue;
    const Rendition& r = (*renditions)[finding.index];
    std::string where = Where(r.file, r.line);
    switch (finding.rule) {
      case RenditionRule::kDefaultNeedsAutoselect:
      case RenditionRule::kOneDefaultPerGroup:
        outcome->notes.push_back("warning: " + where + ": " + finding.message +
                                 " (kept; --conform makes it DEFAULT=NO)");
        break;
      case RenditionRule::kDistinctAutoselect:
        outcome->notes.push_back("warning: " + where + ": " + finding.message);
        break;
      default:
        return Refuse(outcome, kErrPlaylistRule, where + ": " + finding.message);
    }
  }
  return kNoErr;
}

struct MasterLayout {
  std::vector<PlaylistLine> lines;
  std::vector<std::optional<AttributeList>> media;    // parsed #EXT-X-MEDIA lines
  std::vector<std::optional<AttributeList>> streams;  // parsed #EXT-X-STREAM-INF lines
  size_t firstStream = 0;
  std::optional<size_t> lastMediaBeforeStreams;
};

bool IsSubtitleRendition(const AttributeList& attributes) {
  const PlaylistAttribute* type = attributes.Find("TYPE");
  return type && !type->quoted && type->value == "SUBTITLES";
}

Status ReadMaster(std::string_view name, std::string_view text, MasterLayout* layout,
                  MergeOutcome* outcome) {
  if (Status status = CheckEncoding(name, text, outcome)) return status;
  layout->lines = SplitPlaylistLines(text);
  const auto& lines = layout->lines;
  if (lines.empty() || lines[0].text != "#EXTM3U")
    return Refuse(outcome, kErrPlaylistSyntax,
                  Where(name, 1) + ": not a playlist (the first line is not #EXTM3U)");
  layout->media.resize(lines.size());
  layout->streams.resize(lines.size());
  std::optional<size_t> firstStream;
  for (size_t i = 0; i < lines.size(); i++) {
    std::string_view tag = PlaylistTagName(lines[i].text);
    std::string where = Where(name, lines[i].number);
    if (IsMediaPlaylistTag(tag))
      return Refuse(
          outcome, kErrPlaylistSyntax,
          where + ": not a master playlist (" + std::string(tag) + " belongs in a media playlist)");
    if (tag != kMediaTag && tag != kStreamTag) continue;
    AttributeList attributes;
    std::string error;
    if (AttributeList::Parse(PlaylistTagValue(lines[i].text), &attributes, &error))
      return Refuse(outcome, kErrPlaylistSyntax, where + ": " + std::string(tag) + ": " + error);
    if (tag == kMediaTag) {
      if (!firstStream) layout->lastMediaBeforeStreams = i;
      layout->media[i] = std::move(attributes);
      continue;
    }
    if (!firstStream) firstStream = i;
    size_t next = i + 1;
    while (next < lines.size() &&
           (ClassifyPlaylistLine(lines[next].text) == PlaylistLineKind::kBlank ||
            ClassifyPlaylistLine(lines[next].text) == PlaylistLineKind::kComment))
      next++;
    if (next == lines.size() || ClassifyPlaylistLine(lines[next].text) != PlaylistLineKind::kUri)
      return Refuse(outcome, kErrPlaylistSyntax,
                    where + ": #EXT-X-STREAM-INF is not followed by the variant's URI");
    layout->streams[i] = std::move(attributes);
  }
  if (!firstStream)
    return Refuse(
        outcome, kErrPlaylistSyntax,
        std::string(name) + ": not a master playlist with variant streams (no #EXT-X-STREAM-INF)");
  layout->firstStream = *firstStream;
  return kNoErr;
}

// The master's only subtitle group, or the default group when it has none. A rendition without
// a group ID names no group.
Status ChooseGroup(std::string_view name, const MasterLayout& layout, std::string* group,
                   MergeOutcome* outcome) {
  std::vector<std::string> groups;
  for (const auto& media : layout.media) {
    if (!media || !IsSubtitleRendition(*media)) continue;
    std::string id(media->Value("GROUP-ID"));
    if (!id.empty() && std::find(groups.begin(), groups.end(), id) == groups.end())
      groups.push_back(id);
  }
  if (groups.size() > 1) {
    std::string list;
    for (const std::string& id : groups) list += (list.empty() ? "\"" : ", \"") + id + "\"";
    return Refuse(outcome, kErrBadArgument,
                  std::string(name) + " has the subtitle groups " + list +
                      "; name the one to use with --group");
  }
  *group = groups.empty() ? std::string(kDefaultGroup) : groups[0];
  return kNoErr;
}

}  // namespace

Status PlaceSubtitleRenditions(std::string_view masterName, std::string_view masterText,
                               std::vector<Rendition> renditions, GroupPlacement placement,
                               const MergeOptions& options, MergeOutcome* outcome) {
  outcome->text.clear();
  outcome->notes.clear();
  outcome->error.clear();
  if (!IsQuotableText(options.group))
    return Refuse(outcome, kErrBadArgument,
                  "the group ID must be a non-empty text without double quotes or line breaks");
  MasterLayout layout;
  if (Status status = ReadMaster(masterName, masterText, &layout, outcome)) return status;
  std::string group = options.group;
  if (group.empty())
    if (Status status = ChooseGroup(masterName, layout, &group, outcome)) return status;

  std::vector<bool> member(layout.lines.size(), false);
  std::vector<Rendition> all;
  std::optional<size_t> firstMember, lastMember;
  for (size_t i = 0; i < layout.lines.size(); i++) {
    const auto& media = layout.media[i];
    if (!media || !IsSubtitleRendition(*media) || media->Value("GROUP-ID") != group) continue;
    member[i] = true;
    if (!firstMember) firstMember = i;
    lastMember = i;
    if (placement == GroupPlacement::kAppend)
      all.push_back({*media, std::string(masterName), layout.lines[i].number});
  }
  const size_t firstNew = all.size();
  for (Rendition& r : renditions) {
    r.attributes.Set("GROUP-ID", group, true);
    all.push_back(std::move(r));
  }
  if (Status status = ApplyRules(&all, firstNew, group, options.conform, outcome)) return status;

  size_t insertAt = layout.firstStream;
  if (firstMember)
    insertAt = placement == GroupPlacement::kReplace ? *firstMember : *lastMember + 1;
  else if (layout.lastMediaBeforeStreams)
    insertAt = *layout.lastMediaBeforeStreams + 1;

  std::string_view eol = layout.lines[0].terminator.empty() ? "\n" : layout.lines[0].terminator;
  std::string block;
  for (size_t i = firstNew; i < all.size(); i++) {
    block += kMediaTag;
    block += ':';
    block += all[i].attributes.Text();
    block += eol;
  }
  std::string& out = outcome->text;
  out.reserve(masterText.size() + block.size() + 64 * layout.lines.size());
  for (size_t i = 0; i < layout.lines.size(); i++) {
    const PlaylistLine& line = layout.lines[i];
    if (i == insertAt) out += block;
    if (member[i] && placement == GroupPlacement::kReplace) continue;
    if (layout.streams[i]) {
      AttributeList& attributes = *layout.streams[i];
      attributes.Set("SUBTITLES", group, true);
      out += kStreamTag;
      out += ':';
      out += attributes.Text();
    } else {
      out += line.text;
    }
    out += line.terminator;
  }
  if (insertAt == layout.lines.size()) {
    // After a last line without a terminator, the new lines start on a line of their own.
    if (layout.lines.back().terminator.empty()) out += eol;
    out += block;
  }
  return kNoErr;
}

Status MergeSubtitleFragments(std::string_view masterName, std::string_view masterText,
                              const std::vector<SubtitleFragment>& fragments,
                              const MergeOptions& options, MergeOutcome* outcome) {
  *outcome = {};
  if (options.group.empty())
    return Refuse(outcome, kErrBadArgument,
                  "the group ID must be a non-empty text without double quotes or line breaks");
  std::vector<Rendition> renditions;
  for (const SubtitleFragment& fragment : fragments)
    if (Status status = ReadFragment(fragment, &renditions, outcome)) return status;
  return PlaceSubtitleRenditions(masterName, masterText, std::move(renditions),
                                 GroupPlacement::kReplace, options, outcome);
}
