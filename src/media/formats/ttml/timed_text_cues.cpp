#include "media/formats/ttml/timed_text_cues.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <unordered_map>
#include <unordered_set>

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

// A character of a paragraph with its style; `collapsible` marks whitespace outside
// xml:space="preserve", and '\n' with `lineBreak` a line break.
struct StyledByte {
  char byte;
  uint8_t style;
  bool collapsible;
  bool lineBreak;
};

class CueBuilder {
 public:
  explicit CueBuilder(const TimedTextDocument& document) : doc_(document) {}

  Status Build(std::vector<TimedTextCue>* cues, std::string* message) {
    cues->clear();
    if (!doc_.hasBody) return kNoErr;
    size_t count = doc_.nodes.size();
    extent_.assign(count, 0);
    begin_.assign(count, 0);
    end_.assign(count, 0);
    size_.assign(count, 1);
    style_.assign(count, TextStyleFlags{});
    preserve_.assign(count, false);
    region_.assign(count, nullptr);
    // Children always follow their parent, so a backward pass sees children first and a forward
    // pass parents first.
    for (size_t i = count; i-- > 0;) ComputeExtent(i);
    begin_[0] = doc_.nodes[0].begin.value_or(0);
    end_[0] = begin_[0] + extent_[0];
    style_[0] = Compose(ResolveReferences({}, doc_.nodes[0].styleRefs), doc_.nodes[0].inlineStyle);
    preserve_[0] = doc_.nodes[0].preserveSpace == StyleFlag::kOn;
    region_[0] = &doc_.nodes[0].region;
    for (size_t i = 0; i < count; ++i) PlaceChildren(i);
    for (size_t i = 0; i < count; ++i) {
      const TimedTextNode& node = doc_.nodes[i];
      if (node.kind != Kind::kParagraph || !(begin_[i] < end_[i])) continue;
      Status status = BuildParagraph(static_cast<uint32_t>(i), cues, message);
      if (status != kNoErr) return status;
    }
    std::stable_sort(cues->begin(), cues->end(), [](const TimedTextCue& a, const TimedTextCue& b) {
      return a.start < b.start;
    });
    return kNoErr;
  }

 private:
  // The active duration of child `c` measured from its begin, in a container of the given kind.
  double ChildExtent(uint32_t c, bool sequential) const {
    const TimedTextNode& child = doc_.nodes[c];
    if (child.kind == Kind::kText || (child.kind == Kind::kLineBreak && !child.end && !child.dur)) {
      return sequential ? 0 : kIndefinite;
    }
    return extent_[c];
  }

  void ComputeExtent(size_t i) {
    const TimedTextNode& node = doc_.nodes[i];
    for (uint32_t c : node.children) size_[i] += size_[c];
    if (node.dur || node.end) {
      double extent = node.dur.value_or(kIndefinite);
      if (node.end) extent = std::min(extent, *node.end - node.begin.value_or(0));
      extent_[i] = std::max(extent, 0.0);
      return;
    }
    double extent = 0;
    for (uint32_t c : node.children) {
      double childEnd = doc_.nodes[c].begin.value_or(0) + ChildExtent(c, node.sequential);
      extent = node.sequential ? extent + childEnd : std::max(extent, childEnd);
    }
    extent_[i] = extent;
  }

  void PlaceChildren(size_t i) {
    const TimedTextNode& node = doc_.nodes[i];
    double cursor = begin_[i];
    for (uint32_t c : node.children) {
      const TimedTextNode& child = doc_.nodes[c];
      double begin = (node.sequential ? cursor : begin_[i]) + child.begin.value_or(0);
      double extent = ChildExtent(c, node.sequential);
      cursor = begin + extent;
      begin_[c] = std::min(begin, end_[i]);
      end_[c] = std::max(begin_[c], std::min(begin + extent, end_[i]));
      style_[c] = Compose(ResolveReferences(style_[i], child.styleRefs), child.inlineStyle);
      // Content placed in another region than the one its ancestors name is shown nowhere.
      if (!child.region.empty() && !region_[i]->empty() && child.region != *region_[i]) {
        end_[c] = begin_[c];
      }
      region_[c] = child.region.empty() ? region_[i] : &child.region;
      preserve_[c] = child.preserveSpace == StyleFlag::kInherit
                         ? preserve_[i]
                         : child.preserveSpace == StyleFlag::kOn;
    }
  }

  // `flags` with the referenced styles over them in order, each over the styles it references.
  TextStyleFlags ResolveReferences(TextStyleFlags flags, const std::vector<std::string>& refs) {
    for (const std::string& id : refs) {
      std::unordered_set<std::string> visiting;
      flags = ApplyStyle(flags, id, &visiting);
    }
    return flags;
  }

  TextStyleFlags ApplyStyle(TextStyleFlags flags, const std::string& id,
                            std::unordered_set<std::string>* visiting) {
    auto found = doc_.styles.find(id);
    // A missing style, a reference cycle or an overlong chain adds nothing more.
    if (found == doc_.styles.end() || visiting->size() >= kMaxStyleChain ||
        !visiting->insert(id).second) {
      return flags;
    }
    for (const std::string& ref : found->second.styleRefs) {
      flags = ApplyStyle(flags, ref, visiting);
    }
    visiting->erase(id);
    return Compose(flags, found->second.flags);
  }

  Status BuildParagraph(uint32_t p, std::vector<TimedTextCue>* cues, std::string* message) {
    double pBegin = begin_[p], pEnd = end_[p];
    if (size_[p] > kTimedTextMaxParagraphNodes) {
      *message = "the p element at line " + std::to_string(doc_.nodes[p].line) +
                 " holds more than " + std::to_string(kTimedTextMaxParagraphNodes) +
                 " elements and texts";
      return kErrParse;
    }
    std::vector<double> instants{pBegin, pEnd};
    CollectInstants(p, pBegin, pEnd, &instants);
    std::sort(instants.begin(), instants.end());
    instants.erase(std::unique(instants.begin(), instants.end()), instants.end());
    if (instants.size() > kTimedTextMaxParagraphIntervals + 1) {
      *message = "the p element at line " + std::to_string(doc_.nodes[p].line) +
                 " changes its text more than " + std::to_string(kTimedTextMaxParagraphIntervals) +
                 " times";
      return kErrParse;
    }
    auto found = doc_.regions.find(*region_[p]);
    const TimedTextRegion* region = found == doc_.regions.end() ? nullptr : &found->second;
    // The content shown in a region inherits the region's styles, which start from the
    // document's initial ones.
    regionStyle_ = Apply(0, doc_.initial);
    if (region != nullptr) {
      regionStyle_ =
          Apply(regionStyle_, Compose(ResolveReferences({}, region->styleRefs), region->flags));
    }
    std::string settings = PlacementSettings(Apply(regionStyle_, style_[p]), region);
    bool open = false;  // the last cue of this paragraph can be extended
    for (size_t k = 0; k + 1 < instants.size(); ++k) {
      double from = instants[k], to = instants[k + 1];
      bytes_.clear();
      Gather(p, from, to);
      std::string payload = Render();
      // A paragraph may last indefinitely as long as nothing is shown at its end.
      if (to == kIndefinite && !payload.empty()) {
        *message = "the p element at line " + std::to_string(doc_.nodes[p].line) +
                   " is shown but never ends: give it (or an element around it) an end or dur";
        return kErrParse;
      }
      if (payload.empty()) {
        open = false;
      } else if (open && cues->back().payload == payload) {
        cues->back().end = to;
      } else {
        cues->push_back({from, to, settings, std::move(payload)});
        open = true;
      }
    }
    return kNoErr;
  }

  void CollectInstants(uint32_t n, double from, double to, std::vector<double>* instants) const {
    for (uint32_t c : doc_.nodes[n].children) {
      for (double t : {begin_[c], end_[c]}) {
        if (t > from && t < to) instants->push_back(t);
      }
      if (instants->size() > 2 * kTimedTextMaxParagraphIntervals + 2) return;
      CollectInstants(c, from, to, instants);
    }
  }

  // Appends the text of `n`'s subtree that is shown throughout [from, to).
  void Gather(uint32_t n, double from, double to) {
    for (uint32_t c : doc_.nodes[n].children) {
      if (!(begin_[c] <= from && end_[c] >= to)) continue;
      const TimedTextNode& child = doc_.nodes[c];
      if (child.kind == Kind::kLineBreak) {
        bytes_.push_back({'\n', 0, false, true});
      } else if (child.kind == Kind::kText) {
        auto style = static_cast<uint8_t>(Apply(regionStyle_, style_[c]) & kRunStyleMask);
        for (char b : child.text) {
          bool space = b == ' ' || b == '\t' || b == '\r' || b == '\n';
          if (preserve_[c] && b == '\r') continue;
          bytes_.push_back({b, style, space && !preserve_[c], preserve_[c] && b == '\n'});
        }
      } else {
        Gather(c, from, to);
      }
    }
  }

  // The gathered text as a cue payload: whitespace collapsed, lines trimmed, empty lines dropped,
  // styled runs tagged.
  std::string Render() const {
    std::vector<std::vector<StyledByte>> lines(1);
    for (const StyledByte& b : bytes_) {
      std::vector<StyledByte>& line = lines.back();
      if (b.lineBreak) {
        lines.emplace_back();
      } else if (b.collapsible) {
        // Whitespace is dropped at the start of a line and after a space, kept or not.
        if (!line.empty() && line.back().byte != ' ' && line.back().byte != '\t') {
          line.push_back({' ', b.style, true, false});
        }
      } else {
        line.push_back(b);
      }
    }
    std::string payload;
    for (std::vector<StyledByte>& line : lines) {
      while (!line.empty() && line.back().collapsible) line.pop_back();
      bool blank = std::all_of(line.begin(), line.end(),
                               [](const StyledByte& b) { return b.byte == ' ' || b.byte == '\t'; });
      if (blank) continue;
      if (!payload.empty()) payload.push_back('\n');
      for (size_t i = 0; i < line.size();) {
        size_t j = i;
        std::string run;
        while (j < line.size() && line[j].style == line[i].style) run.push_back(line[j++].byte);
        uint8_t style = line[i].style;
        if (style & kBold) payload += "<b>";
        if (style & kItalic) payload += "<i>";
        if (style & kUnderline) payload += "<u>";
        AppendCueTextEscaped(&payload, run);
        if (style & kUnderline) payload += "</u>";
        if (style & kItalic) payload += "</i>";
        if (style & kBold) payload += "</b>";
        i = j;
      }
    }
    return payload;
  }

  const TimedTextDocument& doc_;
  std::vector<double> extent_, begin_, end_;
  std::vector<size_t> size_;
  std::vector<TextStyleFlags> style_;  // the styles given along the way from the body
  uint8_t regionStyle_ = 0;            // what the paragraph being built inherits from its region
  std::vector<bool> preserve_;
  std::vector<const std::string*> region_;  // the region name in effect
  std::vector<StyledByte> bytes_;
};

}  // namespace

Status BuildTimedTextCues(const TimedTextDocument& document, std::vector<TimedTextCue>* cues,
                          std::string* message) {
  return CueBuilder(document).Build(cues, message);
}
