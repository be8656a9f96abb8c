#include "media/formats/ttml/timed_text_cues.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <string_view>
#include <unordered_map>

#include "media/core/cue_text_escape.h"

namespace {

using Kind = TimedTextNode::Kind;
constexpr double kIndefinite = std::numeric_limits<double>::infinity();
constexpr size_t kMaxStyleChain = 32;

enum : uint8_t { kBold = 1, kItalic = 2, kUnderline = 4 };

// A computed style: the bold, italic and underline bits, and the text alignment above them.
constexpr uint8_t kRunStyleMask = 7;
constexpr int kAlignShift = 3;

uint8_t Apply(uint8_t bits, const TextStyleFlags& flags) {
  if (flags.textAlign != TextAlign::kInherit) {
    bits = static_cast<uint8_t>((bits & kRunStyleMask) |
                                (static_cast<uint8_t>(flags.textAlign) << kAlignShift));
  }
  auto set = [&bits](StyleFlag flag, uint8_t bit) {
    if (flag == StyleFlag::kOn) bits = static_cast<uint8_t>(bits | bit);
    if (flag == StyleFlag::kOff) bits = static_cast<uint8_t>(bits & ~bit);
  };
  set(flags.bold, kBold);
  set(flags.italic, kItalic);
  set(flags.underline, kUnderline);
  return bits;
}

// The styles of `inner` over those of `outer`: applying the result is applying both in turn.
TextStyleFlags Compose(TextStyleFlags outer, const TextStyleFlags& inner) {
  if (inner.bold != StyleFlag::kInherit) outer.bold = inner.bold;
  if (inner.italic != StyleFlag::kInherit) outer.italic = inner.italic;
  if (inner.underline != StyleFlag::kInherit) outer.underline = inner.underline;
  if (inner.textAlign != TextAlign::kInherit) outer.textAlign = inner.textAlign;
  return outer;
}

// A percentage as a cue setting gives it: at most three decimals, no trailing zeros.
std::string Percent(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", value);
  std::string out = text;
  while (out.back() == '0') out.pop_back();
  if (out.back() == '.') out.pop_back();
  return out + "%";
}

// The cue settings of a paragraph: its text alignment, and its region's area as the cue box
// (left edge, width, and the line at the top, middle or bottom as the region aligns its text).
std::string PlacementSettings(uint8_t style, const TimedTextRegion* region) {
  auto align = static_cast<TextAlign>(style >> kAlignShift);
  bool area = region != nullptr && region->hasArea;
  // Text in a region starts at its start edge unless told otherwise.
  if (align == TextAlign::kInherit && area) align = TextAlign::kStart;
  std::string settings;
  if (area) {
    double line = region->y;
    const char* lineAlign = "";
    if (region->displayAlign == TimedTextRegion::DisplayAlign::kCenter) {
      line += region->height / 2;
      lineAlign = ",center";
    } else if (region->displayAlign == TimedTextRegion::DisplayAlign::kAfter) {
      line += region->height;
      lineAlign = ",end";
    }
    settings = "line:" + Percent(std::min(line, 100.0)) + lineAlign +
               " position:" + Percent(region->x) +
               ",line-left size:" + Percent(std::min(region->width, 100.0 - region->x));
  }
  const char* names[] = {"", "left", "center", "right", "start", "end"};
  if (align != TextAlign::kInherit) {
    if (!settings.empty()) settings += ' ';
    settings += std::string("align:") + names[static_cast<uint8_t>(align)];
  }
  return settings;
}

class CueBuilder {
 public:
  explicit CueBuilder(const TimedTextDocument& document) : doc_(document) {}

  Status Build(TimedTextCues* cues, std::string* message, TimedTextOpenEnds* openEnds) {
    cues->list.clear();
    cues->text.clear();
    *openEnds = TimedTextOpenEnds{};
    if (!doc_.hasBody) return kNoErr;
    size_t count = doc_.nodes.size();
    begin_.assign(count, 0);
    end_.assign(count, 0);
    style_.assign(count, TextStyleFlags{});
    preserve_.assign(count, false);
    region_.assign(count, 0);
    // Room for the cues' text: their payloads repeat the document's text with tags around it.
    cues->text.reserve(2 * doc_.text.size());
    // What each distinct style attribute adds; each region name's region, and the style the
    // content shown in it inherits: the region's styles over the document's initial ones.
    listStyles_.clear();
    for (const std::vector<std::string>& list : doc_.styleLists) {
      listStyles_.push_back(ResolveReferences({}, list));
    }
    regions_.clear();
    regionStyles_.clear();
    for (const std::string& name : doc_.regionNames) {
      auto found = doc_.regions.find(name);
      const TimedTextRegion* region = found == doc_.regions.end() ? nullptr : &found->second;
      regions_.push_back(region);
      uint8_t style = Apply(0, doc_.initial);
      if (region != nullptr) {
        style = Apply(style, Compose(ResolveReferences({}, region->styleRefs), region->flags));
      }
      regionStyles_.push_back(style);
    }
    // Children always follow their parent, so a backward pass sees children first and a forward
    // pass parents first. The first measures each element's active duration into `end_`, which
    // the second turns into its end once its begin is known.
    for (size_t i = count; i-- > 0;) ComputeExtent(static_cast<uint32_t>(i));
    const TimedTextNode& body = doc_.nodes[0];
    begin_[0] = OrZero(doc_.Times(body).begin);
    end_[0] = begin_[0] + end_[0];
    style_[0] = Compose(listStyles_[body.styleList], body.inlineStyle);
    preserve_[0] = body.preserveSpace == StyleFlag::kOn;
    region_[0] = body.region;
    for (size_t i = 0; i < count; ++i) PlaceChildren(static_cast<uint32_t>(i));
    lastTime_ = begin_[0];
    for (size_t i = 0; i < count; ++i) {
      for (double t : {begin_[i], end_[i]}) {
        if (t != kIndefinite && t > lastTime_) lastTime_ = t;
      }
    }
    for (size_t i = 0; i < count; ++i) {
      const TimedTextNode& node = doc_.nodes[i];
      if (node.kind != Kind::kParagraph || !(begin_[i] < end_[i])) continue;
      Status status = BuildParagraph(static_cast<uint32_t>(i), cues, message, openEnds);
      if (status != kNoErr) return status;
    }
    auto earlier = [](const TimedTextCue& a, const TimedTextCue& b) { return a.start < b.start; };
    if (!std::is_sorted(cues->list.begin(), cues->list.end(), earlier)) {
      std::stable_sort(cues->list.begin(), cues->list.end(), earlier);
    }
    return kNoErr;
  }

 private:
  static double OrZero(double time) { return IsTimeGiven(time) ? time : 0; }

  // The children of node `n`: the first follows it, and each next one follows the one before and
  // its descendants.
  template <typename Visit>
  void ForEachChild(uint32_t n, Visit visit) const {
    const uint32_t end = n + doc_.nodes[n].size;
    for (uint32_t c = n + 1; c < end; c += doc_.nodes[c].size) visit(c);
  }

  // The active duration of child `c` measured from its begin, in a container of the given kind.
  double ChildExtent(uint32_t c, bool sequential) const {
    const TimedTextNode& child = doc_.nodes[c];
    const TimedTextTimes& times = doc_.Times(child);
    if (child.kind == Kind::kText ||
        (child.kind == Kind::kLineBreak && !IsTimeGiven(times.end) && !IsTimeGiven(times.dur))) {
      return sequential ? 0 : kIndefinite;
    }
    return end_[c];
  }

  void ComputeExtent(uint32_t i) {
    const TimedTextNode& node = doc_.nodes[i];
    const TimedTextTimes& times = doc_.Times(node);
    if (IsTimeGiven(times.dur) || IsTimeGiven(times.end)) {
      double extent = IsTimeGiven(times.dur) ? times.dur : kIndefinite;
      if (IsTimeGiven(times.end)) extent = std::min(extent, times.end - OrZero(times.begin));
      end_[i] = std::max(extent, 0.0);
      return;
    }
    double extent = 0;
    ForEachChild(i, [&](uint32_t c) {
      double childEnd = OrZero(doc_.Times(doc_.nodes[c]).begin) + ChildExtent(c, node.sequential);
      extent = node.sequential ? extent + childEnd : std::max(extent, childEnd);
    });
    end_[i] = extent;
  }

  void PlaceChildren(uint32_t i) {
    const TimedTextNode& node = doc_.nodes[i];
    double cursor = begin_[i];
    ForEachChild(i, [&](uint32_t c) {
      const TimedTextNode& child = doc_.nodes[c];
      double begin = (node.sequential ? cursor : begin_[i]) + OrZero(doc_.Times(child).begin);
      double extent = ChildExtent(c, node.sequential);
      cursor = begin + extent;
      begin_[c] = std::min(begin, end_[i]);
      end_[c] = std::max(begin_[c], std::min(begin + extent, end_[i]));
      style_[c] = Compose(Compose(style_[i], listStyles_[child.styleList]), child.inlineStyle);
      // Content placed in another region than the one its ancestors name is shown nowhere.
      if (child.region != 0 && region_[i] != 0 && child.region != region_[i]) {
        end_[c] = begin_[c];
      }
      region_[c] = child.region == 0 ? region_[i] : child.region;
      preserve_[c] = child.preserveSpace == StyleFlag::kInherit
                         ? preserve_[i]
                         : child.preserveSpace == StyleFlag::kOn;
    });
  }

  // `flags` with the referenced styles over them in order, each over the styles it references.
  TextStyleFlags ResolveReferences(TextStyleFlags flags, const std::vector<std::string>& refs) {
    for (const std::string& id : refs) {
      visiting_.clear();
      flags = ApplyStyle(flags, id);
    }
    return flags;
  }

  TextStyleFlags ApplyStyle(TextStyleFlags flags, const std::string& id) {
    auto found = doc_.styles.find(id);
    // A missing style, a reference cycle or an overlong chain adds nothing more.
    if (found == doc_.styles.end() || visiting_.size() >= kMaxStyleChain ||
        std::find(visiting_.begin(), visiting_.end(), &found->first) != visiting_.end()) {
      return flags;
    }
    visiting_.push_back(&found->first);
    for (const std::string& ref : found->second.styleRefs) flags = ApplyStyle(flags, ref);
    visiting_.pop_back();
    return Compose(flags, found->second.flags);
  }

  Status BuildParagraph(uint32_t p, TimedTextCues* cues, std::string* message,
                        TimedTextOpenEnds* openEnds) {
    double pBegin = begin_[p], pEnd = end_[p];
    if (doc_.nodes[p].size > kTimedTextMaxParagraphNodes) {
      *message = "the p element at line " + std::to_string(doc_.nodes[p].line) +
                 " holds more than " + std::to_string(kTimedTextMaxParagraphNodes) +
                 " elements and texts";
      return kErrParse;
    }
    std::vector<double>& instants = instants_;
    instants.assign({pBegin, pEnd});
    // Content without times of its own and without a sequence in it is shown all the time the
    // paragraph is, and changes nothing in between.
    bool uniform = !doc_.nodes[p].sequential;
    for (uint32_t n = p + 1; uniform && n < p + doc_.nodes[p].size; ++n) {
      uniform = doc_.nodes[n].times == 0 && !doc_.nodes[n].sequential;
    }
    if (!uniform) {
      CollectInstants(p, pBegin, pEnd, &instants);
      std::sort(instants.begin(), instants.end());
      instants.erase(std::unique(instants.begin(), instants.end()), instants.end());
    }
    if (instants.size() > kTimedTextMaxParagraphIntervals + 1) {
      *message = "the p element at line " + std::to_string(doc_.nodes[p].line) +
                 " changes its text more than " + std::to_string(kTimedTextMaxParagraphIntervals) +
                 " times";
      return kErrParse;
    }
    const TimedTextRegion* region = regions_[region_[p]];
    regionStyle_ = regionStyles_[region_[p]];
    // A paragraph may last indefinitely as long as nothing is shown at its end. Text that is, is
    // shown until the document's last time, when that comes after the paragraph begins; nothing
    // in the paragraph changes later than that.
    if (pEnd == kIndefinite && instants.size() >= 2) {
      payload_.clear();
      Gather(p, instants[instants.size() - 2], kIndefinite);
      FinishLine();
      if (!payload_.empty()) {
        if (!(lastTime_ > pBegin)) {
          *message = "the p element at line " + std::to_string(doc_.nodes[p].line) +
                     " is shown but never ends: give it (or an element around it) an end or dur";
          return kErrParse;
        }
        while (instants.back() >= lastTime_) instants.pop_back();
        instants.push_back(lastTime_);
        ++openEnds->paragraphs;
        openEnds->end = lastTime_;
      }
    }
    const std::string settings = PlacementSettings(Apply(regionStyle_, style_[p]), region);
    bool open = false;  // the last cue of this paragraph can be extended
    for (size_t k = 0; k + 1 < instants.size(); ++k) {
      double from = instants[k], to = instants[k + 1];
      payload_.clear();
      Gather(p, from, to);
      FinishLine();
      if (payload_.empty()) {
        open = false;
      } else if (open && cues->Payload(cues->list.back()) == payload_) {
        cues->list.back().end = to;
      } else {
        cues->list.push_back({from, to, cues->text.size(), static_cast<uint32_t>(settings.size()),
                              static_cast<uint32_t>(payload_.size())});
        cues->text += settings;
        cues->text += payload_;
        open = true;
      }
    }
    return kNoErr;
  }

  void CollectInstants(uint32_t n, double from, double to, std::vector<double>* instants) const {
    const uint32_t end = n + doc_.nodes[n].size;
    for (uint32_t c = n + 1; c < end; c += doc_.nodes[c].size) {
      for (double t : {begin_[c], end_[c]}) {
        if (t > from && t < to) instants->push_back(t);
      }
      if (instants->size() > 2 * kTimedTextMaxParagraphIntervals + 2) return;
      CollectInstants(c, from, to, instants);
    }
  }

  // Appends the text of `n`'s subtree that is shown throughout [from, to) to the payload.
  void Gather(uint32_t n, double from, double to) {
    ForEachChild(n, [&](uint32_t c) {
      if (!(begin_[c] <= from && end_[c] >= to)) return;
      const TimedTextNode& child = doc_.nodes[c];
      if (child.kind == Kind::kLineBreak) {
        FinishLine();
      } else if (child.kind == Kind::kText) {
        AppendText(doc_.Text(child),
                   static_cast<uint8_t>(Apply(regionStyle_, style_[c]) & kRunStyleMask),
                   preserve_[c]);
      } else {
        Gather(c, from, to);
      }
    });
  }

  // Adds text to the current line. Outside xml:space="preserve" each stretch of whitespace
  // becomes one collapsible space; inside it spaces are kept, a CR is dropped and a newline breaks
  // the line.
  void AppendText(std::string_view text, uint8_t style, bool preserve) {
    size_t pos = 0, size = text.size();
    if (preserve) {
      while (pos < size) {
        size_t stop = pos;
        while (stop < size && text[stop] != '\n' && text[stop] != '\r') ++stop;
        AppendKept(text.substr(pos, stop - pos), style);
        if (stop < size && text[stop] == '\n') FinishLine();
        pos = stop + 1;
      }
      return;
    }
    // Whitespace is never above ' ': one comparison passes every other byte of a word.
    auto isSpace = [](char b) {
      return static_cast<unsigned char>(b) <= ' ' &&
             (b == ' ' || b == '\n' || b == '\t' || b == '\r');
    };
    while (pos < size) {
      if (isSpace(text[pos])) {
        // A collapsible space never starts a line nor follows a space, kept or not.
        if (!lineText_.empty() && lineText_.back() != ' ' && lineText_.back() != '\t') {
          AppendKept(" ", style);
          endsCollapsible_ = true;
        }
        while (pos < size && isSpace(text[pos])) ++pos;
        continue;
      }
      // Words with single spaces between them are taken as they are.
      size_t start = pos, end = pos;
      while (pos < size) {
        if (static_cast<unsigned char>(text[pos]) > ' ' || !isSpace(text[pos])) {
          end = ++pos;
        } else if (text[pos] == ' ' && pos + 1 < size && !isSpace(text[pos + 1])) {
          ++pos;
        } else {
          break;
        }
      }
      AppendKept(text.substr(start, end - start), style);
    }
  }

  void AppendKept(std::string_view text, uint8_t style) {
    if (text.empty()) return;
    if (runs_.empty() || runs_.back().style != style) runs_.push_back({lineText_.size(), style});
    lineText_.append(text);
    endsCollapsible_ = false;
  }

  // Adds the current line to the payload and starts a new one: its trailing collapsible space is
  // dropped, a line left empty or blank is dropped, and styled runs are tagged.
  void FinishLine() {
    if (endsCollapsible_) {
      lineText_.pop_back();
      if (runs_.back().start == lineText_.size()) runs_.pop_back();
      endsCollapsible_ = false;
    }
    if (lineText_.find_first_not_of(" \t") != std::string::npos) {
      if (!payload_.empty()) payload_.push_back('\n');
      for (size_t r = 0; r < runs_.size(); ++r) {
        size_t end = r + 1 < runs_.size() ? runs_[r + 1].start : lineText_.size();
        uint8_t style = runs_[r].style;
        if (style & kBold) payload_ += "<b>";
        if (style & kItalic) payload_ += "<i>";
        if (style & kUnderline) payload_ += "<u>";
        AppendCueTextEscaped(
            &payload_, std::string_view(lineText_).substr(runs_[r].start, end - runs_[r].start));
        if (style & kUnderline) payload_ += "</u>";
        if (style & kItalic) payload_ += "</i>";
        if (style & kBold) payload_ += "</b>";
      }
    }
    lineText_.clear();
    runs_.clear();
  }

  const TimedTextDocument& doc_;
  // Per node: its begin and end, the styles given along the way from the body, whether spaces are
  // kept, and the region name in effect (an index into the document's region names).
  std::vector<double> begin_, end_;
  std::vector<TextStyleFlags> style_;
  std::vector<bool> preserve_;
  std::vector<uint32_t> region_;
  double lastTime_ = 0;                          // the latest finite begin or end in the document
  std::vector<TextStyleFlags> listStyles_;       // what each style attribute adds
  std::vector<const TimedTextRegion*> regions_;  // by region name; null when not defined
  std::vector<uint8_t> regionStyles_;            // by region name
  uint8_t regionStyle_ = 0;  // what the paragraph being built inherits from its region
  std::vector<const std::string*> visiting_;  // the chain of styles being applied
  std::vector<double> instants_;
  // The payload being built for one interval, and its current line: its bytes, where each run of
  // one style starts, and whether it ends in a collapsible space.
  struct Run {
    size_t start;
    uint8_t style;
  };
  std::string payload_, lineText_;
  std::vector<Run> runs_;
  bool endsCollapsible_ = false;
};

}  // namespace

Status BuildTimedTextCues(const TimedTextDocument& document, TimedTextCues* cues,
                          std::string* message, TimedTextOpenEnds* openEnds) {
  TimedTextOpenEnds ignored;
  return CueBuilder(document).Build(cues, message, openEnds != nullptr ? openEnds : &ignored);
}
