#include "media/formats/webvtt/srt_markup.h"

#include <cstring>
#include <vector>

namespace {

// Open elements are tracked to this depth; an opening tag beyond it is dropped.
constexpr size_t kMaxOpenElements = 64;

char Lower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsHexDigit(char c) {
  return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'f');
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

// Where the first line break at or after `from` is, or the text's size.
size_t FindLineEnd(std::string_view text, size_t from) {
  while (from < text.size() && text[from] != '\n' && text[from] != '\r') from++;
  return from;
}

bool HasMarkup(std::string_view text) {
  for (char c : text)
    if (c == '<' || c == '>' || c == '&' || c == '{') return true;
  return false;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); i++)
    if (Lower(a[i]) != Lower(b[i])) return false;
  return true;
}

// Blanks and stray quotes around a color value.
std::string_view TrimValue(std::string_view text) {
  auto strip = [](char c) { return IsBlank(c) || c == '"' || c == '\''; };
  while (!text.empty() && strip(text.front())) text.remove_prefix(1);
  while (!text.empty() && strip(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

struct NamedColor {
  const char* name;
  const char* hex;
};

// Color names seen in SRT files: the HTML basic colors and a few common others.
constexpr NamedColor kNamedColors[] = {
    {"black", "000000"},   {"silver", "c0c0c0"},  {"gray", "808080"},  {"grey", "808080"},
    {"white", "ffffff"},   {"maroon", "800000"},  {"red", "ff0000"},   {"purple", "800080"},
    {"fuchsia", "ff00ff"}, {"magenta", "ff00ff"}, {"green", "008000"}, {"lime", "00ff00"},
    {"olive", "808000"},   {"yellow", "ffff00"},  {"navy", "000080"},  {"blue", "0000ff"},
    {"teal", "008080"},    {"aqua", "00ffff"},    {"cyan", "00ffff"},  {"orange", "ffa500"},
    {"pink", "ffc0cb"},    {"brown", "a52a2a"},
};

// The eight colors that WebVTT renderers know as classes of their own.
constexpr NamedColor kPaletteColors[] = {
    {"white", "ffffff"},  {"lime", "00ff00"},    {"cyan", "00ffff"}, {"red", "ff0000"},
    {"yellow", "ffff00"}, {"magenta", "ff00ff"}, {"blue", "0000ff"}, {"black", "000000"},
};

// A color value as six lower-case hex digits; empty when it names no color.
std::string NormalizeColor(std::string_view value) {
  value = TrimValue(value);
  bool hash = !value.empty() && value.front() == '#';
  if (hash) value.remove_prefix(1);
  bool hex = value.size() == 6 || (hash && value.size() == 3);
  for (char c : value) hex = hex && IsHexDigit(c);
  std::string digits;
  if (hex) {
    for (char c : value) {
      digits += Lower(c);
      if (value.size() == 3) digits += Lower(c);
    }
    return digits;
  }
  if (hash) return digits;
  for (const NamedColor& color : kNamedColors)
    if (EqualsNoCase(value, color.name)) return color.hex;
  return digits;
}

// The value of the attribute `wanted` in a tag's attribute text (after its name), quoted with
// ' or " or bare; an unterminated quote runs to the end. Empty when it is absent.
std::string_view FindAttribute(std::string_view text, std::string_view wanted) {
  size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && IsBlank(text[i])) i++;
    const size_t nameStart = i;
    while (i < text.size() && !IsBlank(text[i]) && text[i] != '=') i++;
    const std::string_view name = text.substr(nameStart, i - nameStart);
    while (i < text.size() && IsBlank(text[i])) i++;
    std::string_view value;
    if (i < text.size() && text[i] == '=') {
      i++;
      while (i < text.size() && IsBlank(text[i])) i++;
      if (i < text.size() && (text[i] == '"' || text[i] == '\'')) {
        const char quote = text[i++];
        const size_t end = text.find(quote, i);
        value = text.substr(i, end == std::string_view::npos ? std::string_view::npos : end - i);
        i = end == std::string_view::npos ? text.size() : end + 1;
      } else {
        const size_t valueStart = i;
        while (i < text.size() && !IsBlank(text[i])) i++;
        value = text.substr(valueStart, i - valueStart);
      }
    }
    if (!name.empty() && EqualsNoCase(name, wanted)) return value;
  }
  return {};
}

// The length of the character reference at the start of `text` (which starts with "&") when
// WebVTT readers know it, else 0.
size_t ReferenceLength(std::string_view text) {
  for (const char* name : {"&amp;", "&lt;", "&gt;", "&lrm;", "&rlm;", "&nbsp;"}) {
    if (text.substr(0, strlen(name)) == name) return strlen(name);
  }
  size_t i = 2;  // "&#" and 1 to 7 decimal digits
  if (text.size() < 4 || text[1] != '#') return 0;
  while (i < text.size() && i < 9 && IsDigit(text[i])) i++;
  return (i > 2 && i < text.size() && text[i] == ';') ? i + 1 : 0;
}

class MarkupRewriter {
 public:
  explicit MarkupRewriter(std::string* out) : out_(out) {}

  int position() const { return position_; }

  void Line(std::string_view line) {
    // The first ">" at or after the current "<", found once for all the "<" before it, so
    // that a line full of "<" costs linear time.
    size_t close = line.find('>');
    size_t i = 0;
    while (i < line.size()) {
      const char c = line[i];
      if (c == '<') {
        if (close < i) close = line.find('>', i);
        i += close == std::string_view::npos ? Escape() : Tag(line.substr(i, close - i + 1));
      } else if (c == '>') {
        out_->append("&gt;");
        i++;
      } else if (c == '&') {
        const size_t n = ReferenceLength(line.substr(i));
        out_->append(n ? line.substr(i, n) : "&amp;");
        i += n ? n : 1;
      } else if (c == '{' && IsPositionCode(line.substr(i))) {
        if (position_ == 0) position_ = line[i + 4] - '0';
        i += 6;
      } else {
        out_->push_back(c);
        i++;
      }
    }
  }

  // Closes every element still open, innermost first.
  void CloseAll() { CloseDownTo(0); }

 private:
  static bool IsPositionCode(std::string_view text) {
    return text.size() >= 6 && text[1] == '\\' && Lower(text[2]) == 'a' && Lower(text[3]) == 'n' &&
           text[4] >= '1' && text[4] <= '9' && text[5] == '}';
  }

  // Handles a tag from its "<" to the first ">" after it; returns how much of it was taken.
  size_t Tag(std::string_view text) {
    const size_t close = text.size() - 1;
    std::string_view inner = text.substr(1, close - 1);
    const bool endTag = !inner.empty() && inner.front() == '/';
    if (endTag) inner.remove_prefix(1);
    size_t nameLength = 0;
    while (nameLength < inner.size() && IsLetter(inner[nameLength])) nameLength++;
    const std::string_view name = inner.substr(0, nameLength);
    const std::string_view rest = inner.substr(nameLength);
    const bool bare = TrimBlanks(rest).empty();
    if (bare && name.size() == 1 && strchr("biuBIU", name[0]) != nullptr) {
      const char kind = Lower(name[0]);
      if (endTag) {
        End(kind);
      } else if (Open(kind)) {
        *out_ += '<';
        *out_ += kind;
        *out_ += '>';
      }
      return close + 1;
    }
    if (EqualsNoCase(name, "font") && (bare || (!endTag && IsBlank(rest.front())))) {
      if (endTag) {
        End('f');
        return close + 1;
      }
      const std::string color = NormalizeColor(FindAttribute(rest, "color"));
      if (Open(color.empty() ? 'f' : 'c') && !color.empty()) {
        *out_ += "<c.color_" + color;
        for (const NamedColor& palette : kPaletteColors)
          if (color == palette.hex) *out_ += std::string(".") + palette.name;
        *out_ += '>';
      }
      return close + 1;
    }
    return Escape();
  }

  size_t Escape() {
    out_->append("&lt;");
    return 1;
  }

  bool Open(char kind) {
    if (open_.size() >= kMaxOpenElements) return false;
    open_.push_back(kind);
    return true;
  }

  // An end tag closes the innermost open element of its kind and every element inside it; one
  // that matches nothing open is dropped. A font's end tag closes either kind of font.
  void End(char kind) {
    for (size_t i = open_.size(); i > 0; i--) {
      const char open = open_[i - 1];
      if (open == kind || (kind == 'f' && open == 'c')) {
        CloseDownTo(i - 1);
        return;
      }
    }
  }

  void CloseDownTo(size_t depth) {
    while (open_.size() > depth) {
      const char kind = open_.back();
      open_.pop_back();
      if (kind == 'f') continue;
      *out_ += "</";
      *out_ += kind;
      *out_ += '>';
    }
  }

  std::string* out_;
  // The open elements, outermost first: 'b', 'i', 'u', 'c' (a font with a color), or 'f' (a
  // font written as nothing).
  std::vector<char> open_;
  int position_ = 0;
};

}  // namespace

std::string_view SrtPositionSettings(int numpad) {
  // Left and right are absolute, so that right-to-left text goes to the same corner; top is the
  // first line, middle the centre of the video, bottom where cues go anyway.
  static constexpr const char* kSettings[] = {
      "position:10% align:left",
      "",
      "position:90% align:right",
      "line:50%,center position:10% align:left",
      "line:50%,center",
      "line:50%,center position:90% align:right",
      "line:0 position:10% align:left",
      "line:0",
      "line:0 position:90% align:right",
  };
  return (numpad >= 1 && numpad <= 9) ? kSettings[static_cast<size_t>(numpad - 1)] : "";
}

bool RewriteSrtMarkup(std::string_view settings, std::string_view payload, std::string* newSettings,
                      std::string* newPayload) {
  newSettings->clear();
  newPayload->clear();
  if (!HasMarkup(payload)) return false;
  MarkupRewriter rewriter(newPayload);
  size_t at = 0;
  while (at < payload.size()) {
    const size_t end = FindLineEnd(payload, at);
    size_t next = end;
    if (next < payload.size()) next++;
    if (next < payload.size() && payload[end] == '\r' && payload[next] == '\n') next++;
    const size_t before = newPayload->size();
    rewriter.Line(payload.substr(at, end - at));
    // A line the rewrite emptied goes with its line break: an empty line would end the cue.
    if (newPayload->size() != before) newPayload->append(payload.substr(end, next - end));
    at = next;
  }
  while (!newPayload->empty() && (newPayload->back() == '\n' || newPayload->back() == '\r'))
    newPayload->pop_back();
  rewriter.CloseAll();
  const std::string_view position = SrtPositionSettings(rewriter.position());
  if (position.empty() && *newPayload == payload) return false;
  newSettings->assign(settings);
  if (!position.empty()) {
    if (!newSettings->empty()) *newSettings += ' ';
    *newSettings += position;
  }
  return true;
}
