// A timed-text (TTML) document read into the parts that become cues: the body's tree of div, p,
// span and br elements with their timing, time containers, whitespace handling, regions, bold,
// italic, underline and text alignment, and the style and region definitions of the head.
// Everything else (other styles, metadata, animation, elements of foreign namespaces) is skipped
// with its content.
//
// The XML is read by expat, with namespaces, and treated as hostile: a document type declaration
// is refused (so no entity can be declared and no external entity or DTD is ever fetched),
// nesting stops at kTimedTextMaxDepth, an element at kTimedTextMaxAttributes attributes of at most
// kTimedTextMaxAttributeBytes each, a paragraph at kTimedTextMaxParagraphBytes of text, the body
// at kTimedTextMaxNodes nodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/status.h"
#include "media/formats/ttml/ttml_time_expression.h"

constexpr size_t kTimedTextMaxDepth = 64;
constexpr size_t kTimedTextMaxAttributes = 64;
constexpr size_t kTimedTextMaxAttributeBytes = 4096;
constexpr size_t kTimedTextMaxParagraphBytes = 65536;
constexpr size_t kTimedTextMaxNodes = 1u << 22;

// A style property that is set on, set off, or left to inheritance.
enum class StyleFlag : int8_t { kInherit = -1, kOff = 0, kOn = 1 };

// tts:textAlign; kInherit when not given.
enum class TextAlign : uint8_t { kInherit, kLeft, kCenter, kRight, kStart, kEnd };

struct TextStyleFlags {
  StyleFlag bold = StyleFlag::kInherit, italic = StyleFlag::kInherit,
            underline = StyleFlag::kInherit;
  TextAlign textAlign = TextAlign::kInherit;
};

// A region's area, in percent of the root container, when its origin and extent are both given
// in percent; and where in it the text sits vertically (tts:displayAlign). Its styles are
// inherited by the content shown in it: `flags` holds its own attributes with those of the style
// elements nested in it below them, `styleRefs` the styles it references, below both.
struct TimedTextRegion {
  TextStyleFlags flags;
  std::vector<std::string> styleRefs;
  bool hasArea = false;
  double x = 0, y = 0, width = 0, height = 0;
  enum class DisplayAlign : uint8_t {
    kBefore,
    kCenter,
    kAfter
  } displayAlign = DisplayAlign::kBefore;
};

// A time attribute that is absent is kNoTime; every time read is finite.
inline constexpr double kNoTime = std::numeric_limits<double>::quiet_NaN();
inline bool IsTimeGiven(double time) {
  return time == time;
}

// The begin, end and dur attributes of an element.
struct TimedTextTimes {
  double begin = kNoTime, end = kNoTime, dur = kNoTime;
};

// An element or text of the body. The nodes are kept in document order, so a node's descendants
// are the `size` - 1 nodes right after it, and its children are found by stepping from one to
// the next over their own descendants. Names and texts are indexes into the document's tables.
struct TimedTextNode {
  enum class Kind : uint8_t { kBody, kDiv, kParagraph, kSpan, kLineBreak, kText };
  Kind kind = Kind::kText;
  bool sequential = false;  // timeContainer="seq"
  StyleFlag preserveSpace = StyleFlag::kInherit;
  TextStyleFlags inlineStyle;
  uint32_t line = 0;       // where the element starts, for messages
  uint32_t size = 1;       // the node and its descendants
  uint32_t styleList = 0;  // the style attribute, an index into styleLists (0: none)
  uint32_t region = 0;     // the region attribute, an index into regionNames (0: none)
  uint32_t textOffset = 0, textLength = 0;  // of a text node, in the document's text
  uint32_t times = 0;                       // an index into the document's times (0: none given)
};

struct TimedTextStyle {
  TextStyleFlags flags;
  std::vector<std::string> styleRefs;
};

struct TimedTextDocument {
  TimedTextRates rates;
  std::vector<TimedTextNode> nodes;  // nodes[0] is the body when `hasBody`
  bool hasBody = false;
  std::string text;                       // the texts of the body, one after another
  std::vector<TimedTextTimes> times{{}};  // of the elements that give any; [0] gives none
  // The distinct values of the body's style attributes (each a list of style ids) and region
  // attributes; [0] is the empty one.
  std::vector<std::vector<std::string>> styleLists{{}};
  std::vector<std::string> regionNames{std::string()};
  std::unordered_map<std::string, TimedTextStyle> styles;    // by xml:id
  std::unordered_map<std::string, TimedTextRegion> regions;  // by xml:id
  TextStyleFlags initial;  // what the document's initial elements make of the initial style

  const TimedTextTimes& Times(const TimedTextNode& node) const { return times[node.times]; }
  std::string_view Text(const TimedTextNode& node) const {
    return std::string_view(text).substr(node.textOffset, node.textLength);
  }
};

// Reads a whole document. On failure returns kErrParse with `*message` saying what is wrong;
// XML errors name `fileName` and the line.
Status ReadTimedTextDocument(std::string_view bytes, std::string_view fileName,
                             TimedTextDocument* document, std::string* message);

// The same for a document of `length` bytes that `fill` writes into the buffer it is given: the
// parser's own, so that the bytes are not copied once more. A status `fill` returns is returned
// as it is, with `*message` left empty.
using TimedTextFill = std::function<Status(char* buffer, size_t length)>;
Status ReadTimedTextDocument(size_t length, const TimedTextFill& fill, std::string_view fileName,
                             TimedTextDocument* document, std::string* message);

// True when `bytes` is XML whose root element is `tt` in a timed-text namespace, or whose document
// type declaration names a `tt` root (which reading the document then refuses). Reads no further
// than the root element's start tag or the declaration, and no further than kTimedTextProbeBytes.
constexpr size_t kTimedTextProbeBytes = size_t{1} << 16;
bool IsTimedTextDocument(std::string_view bytes);
