#include "master/master_merge.h"

#include <algorithm>
#include <optional>

#include "master/attribute_list.h"
#include "master/playlist_tags.h"
#include "master/playlist_text.h"
#include "master/rendition_rules.h"
#include "master/uri_reference.h"

namespace {

constexpr std::string_view kMediaTag = "#EXT-X-MEDIA";
constexpr std::string_view kStreamTag = "#EXT-X-STREAM-INF";

std::string Where(std::string_view file, size_t line) {
  return std::string(file) + ":" + std::to_string(line);
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

// Reads the renditions of one fragment, moved into `group` and rebased onto the master.
Status ReadFragment(const SubtitleFragment& fragment, const std::string& group,
                    std::vector<Rendition>* renditions, MergeOutcome* outcome) {
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
    rendition.attributes.Set("GROUP-ID", group, true);
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

// Applies the rules to the new group: breaks the caller may choose to keep become warnings (or
// are mended with `conform`); any other break refuses the merge.
Status ApplyRules(std::vector<Rendition>* renditions, const MergeOptions& options,
                  MergeOutcome* outcome) {
  if (options.conform) {
    for (Rendition& r : *renditions) {
      if (AttributeIsYes(r.attributes, "DEFAULT") && r.attributes.Has("AUTOSELECT") &&
          !AttributeIsYes(r.attributes, "AUTOSELECT")) {
        r.attributes.Set("DEFAULT", "NO", false);
        outcome->notes.push_back("changed " + Describe(r) +
                                 " to DEFAULT=NO: DEFAULT=YES needs AUTOSELECT=YES");
      }
    }
    bool seenDefault = false;
    for (Rendition& r : *renditions) {
      if (!AttributeIsYes(r.attributes, "DEFAULT")) continue;
      if (seenDefault) {
        r.attributes.Set("DEFAULT", "NO", false);
        outcome->notes.push_back("changed " + Describe(r) + " to DEFAULT=NO: group \"" +
                                 options.group + "\" already has a DEFAULT=YES rendition");
      }
      seenDefault = true;
    }
  }
  for (const RenditionFinding& finding : CheckRenditions(*renditions)) {
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
  std::vector<bool> replaced;                         // renditions of the merged group, dropped
  std::vector<std::optional<AttributeList>> streams;  // parsed #EXT-X-STREAM-INF lines
  size_t insertAt = 0;                                // the new renditions go before this line
};

Status ReadMaster(std::string_view name, std::string_view text, const std::string& group,
                  MasterLayout* layout, MergeOutcome* outcome) {
  if (Status status = CheckEncoding(name, text, outcome)) return status;
  layout->lines = SplitPlaylistLines(text);
  const auto& lines = layout->lines;
  if (lines.empty() || lines[0].text != "#EXTM3U")
    return Refuse(outcome, kErrPlaylistSyntax,
                  Where(name, 1) + ": not a playlist (the first line is not #EXTM3U)");
  layout->replaced.assign(lines.size(), false);
  layout->streams.resize(lines.size());
  std::optional<size_t> firstStream, firstReplaced, lastMediaBeforeStreams;
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
      if (!firstStream) lastMediaBeforeStreams = i;
      const PlaylistAttribute* type = attributes.Find("TYPE");
      const PlaylistAttribute* id = attributes.Find("GROUP-ID");
      if (type && !type->quoted && type->value == "SUBTITLES" && id && id->value == group) {
        layout->replaced[i] = true;
        if (!firstReplaced) firstReplaced = i;
      }
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
  if (firstReplaced)
    layout->insertAt = *firstReplaced;
  else if (lastMediaBeforeStreams)
    layout->insertAt = *lastMediaBeforeStreams + 1;
  else
    layout->insertAt = *firstStream;
  return kNoErr;
}

}  // namespace

Status MergeSubtitleFragments(std::string_view masterName, std::string_view masterText,
                              const std::vector<SubtitleFragment>& fragments,
                              const MergeOptions& options, MergeOutcome* outcome) {
  outcome->text.clear();
  outcome->notes.clear();
  outcome->error.clear();
  if (options.group.empty() || !IsQuotableText(options.group))
    return Refuse(outcome, kErrBadArgument,
                  "the group ID must be a non-empty text without double quotes or line breaks");
  MasterLayout layout;
  if (Status status = ReadMaster(masterName, masterText, options.group, &layout, outcome))
    return status;
  std::vector<Rendition> renditions;
  for (const SubtitleFragment& fragment : fragments)
    if (Status status = ReadFragment(fragment, options.group, &renditions, outcome)) return status;
  if (Status status = ApplyRules(&renditions, options, outcome)) return status;

  std::string_view eol = layout.lines[0].terminator.empty() ? "\n" : layout.lines[0].terminator;
  std::string block;
  for (const Rendition& r : renditions) {
    block += kMediaTag;
    block += ':';
    block += r.attributes.Text();
    block += eol;
  }
  std::string& out = outcome->text;
  out.reserve(masterText.size() + block.size() + 64 * layout.lines.size());
  for (size_t i = 0; i < layout.lines.size(); i++) {
    const PlaylistLine& line = layout.lines[i];
    if (i == layout.insertAt) out += block;
    if (layout.replaced[i]) continue;
    if (layout.streams[i]) {
      AttributeList& attributes = *layout.streams[i];
      attributes.Set("SUBTITLES", options.group, true);
      out += kStreamTag;
      out += ':';
      out += attributes.Text();
    } else {
      out += line.text;
    }
    out += line.terminator;
  }
  return kNoErr;
}
