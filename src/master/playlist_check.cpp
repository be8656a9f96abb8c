#include "master/playlist_check.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>

#include "master/attribute_list.h"
#include "master/playlist_tags.h"
#include "master/playlist_text.h"
#include "master/rendition_rules.h"
#include "master/subtitle_timing.h"

namespace {

class ProblemList {
 public:
  ProblemList(const std::string& file, std::vector<PlaylistProblem>* problems)
      : file_(file), problems_(problems) {}
  void Add(size_t line, std::string message) {
    problems_->push_back({file_, line, std::move(message)});
  }

 private:
  const std::string& file_;
  std::vector<PlaylistProblem>* problems_;
};

void CheckHeader(const std::vector<PlaylistLine>& lines, std::string_view text,
                 ProblemList* problems) {
  size_t line = 0;
  std::string encoding = FindPlaylistEncodingProblem(text, &line);
  if (!encoding.empty()) problems->Add(line, "the playlist " + encoding);
  if (lines.empty() || lines[0].text != "#EXTM3U")
    problems->Add(1, "the first line must be #EXTM3U");
}

bool ParseAttributes(std::string_view tag, std::string_view line, size_t number,
                     AttributeList* attributes, ProblemList* problems) {
  std::string error;
  if (AttributeList::Parse(PlaylistTagValue(line), attributes, &error) == kNoErr) return true;
  problems->Add(number, std::string(tag) + ": " + error);
  return false;
}

// The next line after `i` that is neither blank nor a comment, or lines.size().
size_t NextContentLine(const std::vector<PlaylistLine>& lines, size_t i) {
  for (i++; i < lines.size(); i++) {
    PlaylistLineKind kind = ClassifyPlaylistLine(lines[i].text);
    if (kind != PlaylistLineKind::kBlank && kind != PlaylistLineKind::kComment) break;
  }
  return i;
}

// decimal-float: digits, optionally a point and more digits.
std::optional<double> ParseDecimalFloat(std::string_view text) {
  size_t point = text.find('.');
  std::string_view whole = text.substr(0, point);
  std::string_view fraction = point == std::string_view::npos ? "" : text.substr(point + 1);
  auto digits = [](std::string_view s) {
    return s.find_first_not_of("0123456789") == std::string_view::npos;
  };
  if (whole.empty() || !digits(whole) || !digits(fraction)) return std::nullopt;
  double value = 0;
  auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

void CheckMasterPlaylistText(const std::string& name, std::string_view text,
                             std::vector<PlaylistProblem>* problemList,
                             std::vector<PlaylistReference>* references) {
  ProblemList problems(name, problemList);
  std::vector<PlaylistLine> lines = SplitPlaylistLines(text);
  CheckHeader(lines, text, &problems);
  std::vector<Rendition> renditions;
  std::vector<std::pair<std::string, size_t>> subtitleGroupUses;
  size_t streams = 0;
  size_t variantUriLine = 0;  // index of the URI line the last #EXT-X-STREAM-INF claimed
  for (size_t i = 0; i < lines.size(); i++) {
    const PlaylistLine& line = lines[i];
    PlaylistLineKind kind = ClassifyPlaylistLine(line.text);
    if (kind == PlaylistLineKind::kUri) {
      if (variantUriLine != i)
        problems.Add(line.number, "a URI line that no #EXT-X-STREAM-INF claims");
      continue;
    }
    std::string_view tag = PlaylistTagName(line.text);
    if (IsMediaPlaylistTag(tag)) {
      problems.Add(line.number, std::string(tag) + " belongs in a media playlist");
    } else if (tag == "#EXT-X-MEDIA") {
      Rendition rendition;
      if (!ParseAttributes(tag, line.text, line.number, &rendition.attributes, &problems)) continue;
      rendition.file = name;
      rendition.line = line.number;
      const PlaylistAttribute* uri = rendition.attributes.Find("URI");
      if (uri) {
        references->push_back({uri->value, line.number,
                               rendition.attributes.Value("TYPE") == "SUBTITLES", false, false,
                               std::string(rendition.attributes.Value("GROUP-ID"))});
      }
      renditions.push_back(std::move(rendition));
    } else if (tag == "#EXT-X-STREAM-INF") {
      streams++;
      AttributeList attributes;
      std::string subtitleGroup;
      if (ParseAttributes(tag, line.text, line.number, &attributes, &problems)) {
        if (!attributes.Has("BANDWIDTH"))
          problems.Add(line.number, "#EXT-X-STREAM-INF has no BANDWIDTH");
        if (const PlaylistAttribute* group = attributes.Find("SUBTITLES")) {
          if (!group->quoted)
            problems.Add(line.number, "SUBTITLES must be a quoted string");
          else
            subtitleGroupUses.emplace_back(subtitleGroup = group->value, line.number);
        }
      }
      size_t next = NextContentLine(lines, i);
      if (next == lines.size() ||
          ClassifyPlaylistLine(lines[next].text) != PlaylistLineKind::kUri) {
        problems.Add(line.number, "#EXT-X-STREAM-INF is not followed by a URI line");
      } else {
        variantUriLine = next;
        references->push_back(
            {std::string(lines[next].text), lines[next].number, false, false, true, subtitleGroup});
      }
    } else if (tag == "#EXT-X-I-FRAME-STREAM-INF") {
      AttributeList attributes;
      if (!ParseAttributes(tag, line.text, line.number, &attributes, &problems)) continue;
      if (const PlaylistAttribute* uri = attributes.Find("URI"))
        references->push_back({uri->value, line.number, false, false, false, ""});
      else
        problems.Add(line.number, "#EXT-X-I-FRAME-STREAM-INF has no URI");
    }
  }
  if (streams == 0) problems.Add(1, "no #EXT-X-STREAM-INF: the playlist lists no variant stream");
  for (const RenditionFinding& finding : CheckRenditions(renditions))
    problems.Add(renditions[finding.index].line, finding.message);
  for (const auto& use : subtitleGroupUses) {
    const std::string& group = use.first;
    bool found = std::any_of(renditions.begin(), renditions.end(), [&group](const Rendition& r) {
      return r.attributes.Value("TYPE") == "SUBTITLES" && r.attributes.Value("GROUP-ID") == group;
    });
    if (!found)
      problems.Add(use.second,
                   "SUBTITLES=\"" + group + "\" names no subtitle group of this playlist");
  }
}

void CheckSubtitlePlaylistText(const std::string& name, std::string_view text,
                               std::vector<PlaylistProblem>* problemList,
                               std::vector<PlaylistReference>* segments) {
  ProblemList problems(name, problemList);
  std::vector<PlaylistLine> lines = SplitPlaylistLines(text);
  CheckHeader(lines, text, &problems);
  std::optional<uint64_t> target;
  std::vector<std::pair<double, size_t>> durations;  // rounded EXTINF duration, line
  size_t pendingExtinf = 0;  // line of an #EXTINF still waiting for its URI, or 0
  bool encrypted = false;
  bool endList = false;
  for (const PlaylistLine& line : lines) {
    PlaylistLineKind kind = ClassifyPlaylistLine(line.text);
    if (kind == PlaylistLineKind::kUri) {
      if (pendingExtinf == 0) problems.Add(line.number, "a segment URI without #EXTINF before it");
      pendingExtinf = 0;
      segments->push_back({std::string(line.text), line.number, false, encrypted, false, ""});
      continue;
    }
    std::string_view tag = PlaylistTagName(line.text);
    std::string_view value = PlaylistTagValue(line.text);
    if (tag == "#EXTINF") {
      if (pendingExtinf) problems.Add(pendingExtinf, "#EXTINF without a segment URI");
      pendingExtinf = line.number;
      std::optional<double> duration = ParseDecimalFloat(value.substr(0, value.find(',')));
      if (!duration || value.find(',') == std::string_view::npos)
        problems.Add(line.number, "#EXTINF must be a duration in seconds and a comma");
      else
        durations.emplace_back(std::floor(*duration + 0.5), line.number);
    } else if (tag == "#EXT-X-TARGETDURATION") {
      if (target) problems.Add(line.number, "a second #EXT-X-TARGETDURATION");
      target = ParseDecimalInteger(value);
      if (!target) problems.Add(line.number, "#EXT-X-TARGETDURATION must be a whole number");
    } else if (tag == "#EXT-X-KEY") {
      AttributeList attributes;
      if (ParseAttributes(tag, line.text, line.number, &attributes, &problems))
        encrypted = attributes.Value("METHOD") != "NONE";
    } else if (tag == "#EXT-X-ENDLIST") {
      endList = true;
    } else if (IsMasterPlaylistTag(tag)) {
      problems.Add(line.number, std::string(tag) + " belongs in a master playlist");
    }
  }
  if (pendingExtinf) problems.Add(pendingExtinf, "#EXTINF without a segment URI");
  if (!target) {
    problems.Add(1, "no #EXT-X-TARGETDURATION");
  } else {
    for (const auto& [rounded, number] : durations) {
      if (rounded > static_cast<double>(*target)) {
        char message[160];
        snprintf(message, sizeof message,
                 "#EXTINF duration rounds to %.0f s, above the target duration of %llu s", rounded,
                 static_cast<unsigned long long>(*target));
        problems.Add(number, message);
      }
    }
  }
  if (!endList) problems.Add(lines.empty() ? 1 : lines.back().number, "no #EXT-X-ENDLIST");
}

void CheckWebVttSegmentHead(const std::string& name, std::string_view head,
                            std::vector<PlaylistProblem>* problemList) {
  ProblemList problems(name, problemList);
  if (head.starts_with("\xEF\xBB\xBF")) head.remove_prefix(3);
  bool signature =
      head.starts_with("WEBVTT") &&
      (head.size() == 6 || std::string_view(" \t\r\n").find(head[6]) != std::string_view::npos);
  if (!signature) {
    problems.Add(1, "does not start with a WEBVTT line");
    return;
  }
  std::optional<size_t> mapLine;
  for (const PlaylistLine& line : SplitPlaylistLines(head)) {
    if (line.number == 1) continue;
    if (line.text.empty()) break;  // the header block ends at the first blank line
    if (!line.text.starts_with("X-TIMESTAMP-MAP=")) continue;
    mapLine = line.number;
    if (!ParseTimestampMap(line.text.substr(16)))
      problems.Add(line.number, "X-TIMESTAMP-MAP must be MPEGTS:<90 kHz time>,LOCAL:<cue time>");
  }
  if (!mapLine) problems.Add(1, "no X-TIMESTAMP-MAP in the segment header");
}
