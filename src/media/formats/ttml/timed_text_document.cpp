#include "media/formats/ttml/timed_text_document.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <span>

namespace {

using Kind = TimedTextNode::Kind;

constexpr char kNamespaceSeparator = '|';
constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";

// The namespaces of timed text: the current one and the two older drafts still found in files.
bool IsTimedTextNamespace(std::string_view uri, std::string_view suffix) {
  for (std::string_view base : {"http://www.w3.org/ns/ttml", "http://www.w3.org/2006/10/ttaf1",
                                "http://www.w3.org/2006/04/ttaf1"}) {
    if (uri.size() == base.size() + suffix.size() && uri.substr(0, base.size()) == base &&
        uri.substr(base.size()) == suffix) {
      return true;
    }
  }
  return false;
}

struct QualifiedName {
  std::string_view uri, local;
};

// An attribute's name, split at the namespace separator, and its value.
struct Attribute {
  std::string_view uri, local, value;
};

QualifiedName SplitName(const XML_Char* name) {
  std::string_view full(name);
  size_t separator = full.rfind(kNamespaceSeparator);
  if (separator == std::string_view::npos) return {{}, full};
  return {full.substr(0, separator), full.substr(separator + 1)};
}

std::vector<std::string> SplitTokens(std::string_view s) {
  std::vector<std::string> tokens;
  size_t pos = 0;
  while (pos < s.size()) {
    size_t start = s.find_first_not_of(" \t\r\n", pos);
    if (start == std::string_view::npos) break;
    size_t stop = s.find_first_of(" \t\r\n", start);
    if (stop == std::string_view::npos) stop = s.size();
    tokens.emplace_back(s.substr(start, stop - start));
    pos = stop;
  }
  return tokens;
}

// Reads a bold, italic or underline property into `flags`; other styling attributes are dropped.
void ReadStyleAttribute(std::string_view local, std::string_view value, TextStyleFlags* flags) {
  if (local == "fontWeight") {
    if (value == "bold") flags->bold = StyleFlag::kOn;
    if (value == "normal") flags->bold = StyleFlag::kOff;
  } else if (local == "fontStyle") {
    if (value == "italic" || value == "oblique") flags->italic = StyleFlag::kOn;
    if (value == "normal") flags->italic = StyleFlag::kOff;
  } else if (local == "textAlign") {
    const std::pair<std::string_view, TextAlign> names[] = {
        {"left", TextAlign::kLeft},   {"center", TextAlign::kCenter}, {"right", TextAlign::kRight},
        {"start", TextAlign::kStart}, {"end", TextAlign::kEnd},
    };
    for (const auto& [name, align] : names) {
      if (value == name) flags->textAlign = align;
    }
  } else if (local == "textDecoration") {
    for (const std::string& token : SplitTokens(value)) {
      if (token == "underline") flags->underline = StyleFlag::kOn;
      if (token == "noUnderline" || token == "none") flags->underline = StyleFlag::kOff;
    }
  }
}

// Two percentages ("10% 80.5%"), as tts:origin and tts:extent give them.
bool ReadPercentPair(std::string_view value, double* first, double* second) {
  std::vector<std::string> tokens = SplitTokens(value);
  if (tokens.size() != 2) return false;
  double* out[] = {first, second};
  for (size_t i = 0; i < 2; ++i) {
    const std::string& token = tokens[i];
    if (token.size() < 2 || token.back() != '%') return false;
    char* end = nullptr;
    double number = std::strtod(token.c_str(), &end);
    if (end != token.c_str() + token.size() - 1 || !(number >= 0 && number <= 100)) return false;
    *out[i] = number;
  }
  return true;
}

const char* ElementName(Kind kind) {
  switch (kind) {
    case Kind::kBody:
      return "body";
    case Kind::kDiv:
      return "div";
    case Kind::kParagraph:
      return "p";
    case Kind::kSpan:
      return "span";
    case Kind::kLineBreak:
      return "br";
    case Kind::kText:
      break;
  }
  return "text";
}

// Strings by value, looked up without making a string of the key.
struct StringHash {
  using is_transparent = void;
  size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
};
using IndexMap = std::unordered_map<std::string, uint32_t, StringHash, std::equal_to<>>;

using Attributes = std::span<const Attribute>;

class DocumentReader {
 public:
  DocumentReader(std::string_view fileName, TimedTextDocument* document)
      : fileName_(fileName), document_(document) {}

  Status Read(size_t length, const TimedTextFill& fill, std::string* message) {
    if (length > static_cast<size_t>(std::numeric_limits<int>::max())) {
      *message = std::string(fileName_) + ": larger than " +
                 std::to_string(std::numeric_limits<int>::max()) + " bytes";
      return kErrParse;
    }
    std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(
        XML_ParserCreateNS("UTF-8", kNamespaceSeparator), XML_ParserFree);
    if (!parser) return kMxErrAllocationFailed;
    parser_ = parser.get();
    // The document goes straight into the parser's buffer, read there in one piece. (An empty
    // document gets no buffer: it is parsed from an empty string.)
    static char empty[1] = {};
    char* buffer = empty;
    if (length != 0) {
      buffer = static_cast<char*>(XML_GetBuffer(parser_, static_cast<int>(length)));
      if (buffer == nullptr) return kMxErrAllocationFailed;
      Status status = fill(buffer, length);
      if (status != kNoErr) return status;
    }
    bytes_ = std::string_view(buffer, length);
    hasCarriageReturn_ = length != 0 && std::memchr(buffer, '\r', length) != nullptr;
    // An element takes four bytes at least ("<p/>") and a text lies between two of them: room
    // for that many nodes saves moving them as they are added (up to a bound, past which they
    // grow as usual). Room that is never filled costs address space only.
    constexpr size_t kReservedNodes = size_t{1} << 18;
    document_->nodes.reserve(std::min(length / 4 + 1, kReservedNodes));
    // The texts are never longer than the document: reserved, they are never moved.
    document_->text.reserve(length);
    XML_SetUserData(parser_, this);
    XML_SetParamEntityParsing(parser_, XML_PARAM_ENTITY_PARSING_NEVER);
    XML_SetStartDoctypeDeclHandler(
        parser_, [](void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
          static_cast<DocumentReader*>(self)->Fail("a document type declaration is not accepted");
        });
    XML_SetElementHandler(
        parser_,
        [](void* self, const XML_Char* name, const XML_Char** attributes) {
          static_cast<DocumentReader*>(self)->Start(name, attributes);
        },
        [](void* self, const XML_Char*) { static_cast<DocumentReader*>(self)->End(); });
    XML_SetCharacterDataHandler(parser_, [](void* self, const XML_Char* text, int size) {
      static_cast<DocumentReader*>(self)->Text(std::string_view(text, static_cast<size_t>(size)));
    });
    XML_Status parsed = length == 0 ? XML_Parse(parser_, buffer, 0, XML_TRUE)
                                    : XML_ParseBuffer(parser_, static_cast<int>(length), XML_TRUE);
    if (parsed != XML_STATUS_OK) {
      if (error_.empty()) {
        error_ = XML_ErrorString(XML_GetErrorCode(parser_));
      }
      *message = std::string(fileName_) + ":" + std::to_string(XML_GetCurrentLineNumber(parser_)) +
                 ": " + error_;
      return kErrParse;
    }
    if (!document_->hasBody && !sawRoot_) {
      *message = std::string(fileName_) + ": no root element";
      return kErrParse;
    }
    return kNoErr;
  }

 private:
  static constexpr uint32_t kNoNode = UINT32_MAX;
  enum class Place : uint8_t { kRoot, kHead, kStyling, kLayout, kRegion, kBody };

  // The line of the current element. Without CRs, a line ends at each LF and counting them here
  // is much cheaper than asking the parser, which rescans the text since the last event.
  uint32_t Line() {
    XML_Index offset = XML_GetCurrentByteIndex(parser_);
    if (hasCarriageReturn_ || offset < 0 || static_cast<size_t>(offset) > bytes_.size() ||
        static_cast<size_t>(offset) < linesCountedTo_) {
      return static_cast<uint32_t>(XML_GetCurrentLineNumber(parser_));
    }
    const char* data = bytes_.data();
    const char* stop = data + offset;
    for (const char* p = data + linesCountedTo_; p != stop; ++p) {
      p = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(stop - p)));
      if (p == nullptr) break;
      ++linesCounted_;
    }
    linesCountedTo_ = static_cast<size_t>(offset);
    return static_cast<uint32_t>(linesCounted_ + 1);
  }

  void Fail(std::string error) {
    if (error_.empty()) error_ = std::move(error);
    XML_StopParser(parser_, XML_FALSE);
  }

  void Start(const XML_Char* name, const XML_Char** rawAttributes) {
    ++depth_;
    if (depth_ > kTimedTextMaxDepth) {
      return Fail("elements nested deeper than " + std::to_string(kTimedTextMaxDepth));
    }
    if (skipFrom_ != 0) return;
    // The attributes are split once, here, for every reader of them below.
    size_t count = 0;
    for (const XML_Char** a = rawAttributes; *a != nullptr; a += 2) {
      if (count == kTimedTextMaxAttributes) {
        return Fail("an element with more than " + std::to_string(kTimedTextMaxAttributes) +
                    " attributes");
      }
      std::string_view value(a[1]);
      if (value.size() > kTimedTextMaxAttributeBytes) {
        return Fail("an attribute value longer than " +
                    std::to_string(kTimedTextMaxAttributeBytes) + " bytes");
      }
      QualifiedName attribute = SplitName(a[0]);
      if (attribute.local == "backgroundImage") {
        return Fail("image subtitles (backgroundImage) are not supported");
      }
      attributes_[count++] = {attribute.uri, attribute.local, value};
    }
    const Attributes attributes(attributes_.data(), count);
    QualifiedName element = SplitName(name);
    bool timedText = IsTimedTextNamespace(element.uri, "");
    if (depth_ == 1) {
      sawRoot_ = true;
      if (!timedText || element.local != "tt") {
        return Fail("the root element is not a timed-text tt element");
      }
      return ReadRoot(attributes);
    }
    if (!timedText) return Skip();
    if (element.local == "image") return Fail("image subtitles (image) are not supported");
    switch (places_.empty() ? Place::kRoot : places_.back()) {
      case Place::kRoot:
        if (depth_ == 2 && element.local == "head") return Enter(Place::kHead, kNoNode);
        if (depth_ == 2 && element.local == "body" && !document_->hasBody) {
          return Enter(Place::kBody, AddNode(Kind::kBody, attributes));
        }
        return Skip();
      case Place::kHead:
        if (element.local == "styling") return Enter(Place::kStyling, kNoNode);
        if (element.local == "layout") return Enter(Place::kLayout, kNoNode);
        return Skip();
      case Place::kLayout:
        if (element.local != "region") return Skip();
        ReadRegionElement(attributes);
        return Enter(Place::kRegion, kNoNode);
      case Place::kRegion:
        if (element.local == "style" && region_ != nullptr) ReadNestedStyle(attributes);
        return Skip();
      case Place::kStyling:
        if (element.local == "style") ReadStyleElement(attributes);
        if (element.local == "initial") ReadInitialElement(attributes);
        return Skip();
      case Place::kBody:
        return StartContent(element.local, attributes);
    }
  }

  void StartContent(std::string_view local, Attributes attributes) {
    Kind parent = document_->nodes[nodes_.back()].kind;
    bool inText = parent == Kind::kParagraph || parent == Kind::kSpan;
    Kind kind;
    if ((local == "div" || local == "p") && !inText) {
      kind = local == "div" ? Kind::kDiv : Kind::kParagraph;
    } else if ((local == "span" || local == "br") && inText) {
      kind = local == "span" ? Kind::kSpan : Kind::kLineBreak;
    } else {
      return Skip();
    }
    uint32_t index = AddNode(kind, attributes);
    if (index == kNoNode) return;
    if (kind == Kind::kParagraph) paragraphBytes_ = 0;
    Enter(Place::kBody, index);
  }

  void End() {
    if (skipFrom_ == depth_) {
      skipFrom_ = 0;
    } else if (skipFrom_ == 0 && !places_.empty() && depth_ == placeDepths_.back()) {
      places_.pop_back();
      placeDepths_.pop_back();
      if (nodes_.back() != kNoNode) {
        document_->nodes[nodes_.back()].size =
            static_cast<uint32_t>(document_->nodes.size() - nodes_.back());
      }
      nodes_.pop_back();
    }
    --depth_;
  }

  void Text(std::string_view text) {
    if (skipFrom_ != 0 || nodes_.empty() || nodes_.back() == kNoNode) return;
    Kind parent = document_->nodes[nodes_.back()].kind;
    if (parent != Kind::kParagraph && parent != Kind::kSpan) return;
    paragraphBytes_ += text.size();
    if (paragraphBytes_ > kTimedTextMaxParagraphBytes) {
      return Fail("a paragraph with more than " + std::to_string(kTimedTextMaxParagraphBytes) +
                  " bytes of text");
    }
    // Text right after text of the same element (split by the parser, or around a skipped
    // element) joins it; its bytes are the last of the document's text.
    if (lastText_ == document_->nodes.size() - 1 && lastTextParent_ == nodes_.back()) {
      document_->text.append(text);
      document_->nodes[lastText_].textLength += static_cast<uint32_t>(text.size());
      return;
    }
    uint32_t parentIndex = nodes_.back();
    uint32_t index = NewNode();
    if (index == kNoNode) return;
    TimedTextNode& node = document_->nodes[index];
    node.textOffset = static_cast<uint32_t>(document_->text.size());
    node.textLength = static_cast<uint32_t>(text.size());
    document_->text.append(text);
    lastText_ = index;
    lastTextParent_ = parentIndex;
  }

  void Skip() { skipFrom_ = depth_; }

  void Enter(Place place, uint32_t node) {
    if (place == Place::kBody && node == kNoNode) return;  // failed
    places_.push_back(place);
    placeDepths_.push_back(depth_);
    nodes_.push_back(node);
  }

  void ReadRoot(Attributes attributes) {
    std::string_view frameRate, multiplier, subFrameRate, tickRate;
    for (const Attribute& attribute : attributes) {
      std::string_view value = attribute.value;
      if (attribute.uri == kXmlNamespace && attribute.local == "space") {
        if (value == "preserve") rootPreserveSpace_ = StyleFlag::kOn;
        if (value == "default") rootPreserveSpace_ = StyleFlag::kOff;
      }
      if (!IsTimedTextNamespace(attribute.uri, "#parameter")) continue;
      if (attribute.local == "frameRate") frameRate = value;
      if (attribute.local == "frameRateMultiplier") multiplier = value;
      if (attribute.local == "subFrameRate") subFrameRate = value;
      if (attribute.local == "tickRate") tickRate = value;
      if (attribute.local == "timeBase" && value != "media") {
        return Fail("the time base \"" + std::string(value) +
                    "\" is not supported (only media time is)");
      }
    }
    std::string_view bad =
        ReadTimedTextRates(frameRate, multiplier, subFrameRate, tickRate, &document_->rates);
    if (!bad.empty()) Fail("the tt element has an unusable " + std::string(bad));
  }

  void ReadStyleElement(Attributes attributes) {
    std::string id;
    TimedTextStyle style;
    for (const Attribute& attribute : attributes) {
      if (attribute.uri == kXmlNamespace && attribute.local == "id") id = attribute.value;
      if (attribute.uri.empty() && attribute.local == "style")
        style.styleRefs = SplitTokens(attribute.value);
      if (IsTimedTextNamespace(attribute.uri, "#styling")) {
        ReadStyleAttribute(attribute.local, attribute.value, &style.flags);
      }
    }
    if (!id.empty()) document_->styles.insert_or_assign(std::move(id), std::move(style));
  }

  void ReadInitialElement(Attributes attributes) {
    for (const Attribute& attribute : attributes) {
      if (IsTimedTextNamespace(attribute.uri, "#styling")) {
        ReadStyleAttribute(attribute.local, attribute.value, &document_->initial);
      }
    }
  }

  // Reads a region into the document and makes it the one nested styles go to.
  void ReadRegionElement(Attributes attributes) {
    std::string id;
    TimedTextRegion region;
    bool origin = false, extent = false;
    for (const Attribute& attribute : attributes) {
      std::string_view value = attribute.value;
      if (attribute.uri == kXmlNamespace && attribute.local == "id") id = value;
      if (attribute.uri.empty() && attribute.local == "style")
        region.styleRefs = SplitTokens(value);
      if (!IsTimedTextNamespace(attribute.uri, "#styling")) continue;
      ReadStyleAttribute(attribute.local, value, &region.flags);
      if (attribute.local == "origin") origin = ReadPercentPair(value, &region.x, &region.y);
      if (attribute.local == "extent") {
        extent = ReadPercentPair(value, &region.width, &region.height);
      }
      if (attribute.local == "displayAlign") {
        if (value == "center") region.displayAlign = TimedTextRegion::DisplayAlign::kCenter;
        if (value == "after") region.displayAlign = TimedTextRegion::DisplayAlign::kAfter;
      }
    }
    region.hasArea = origin && extent;
    region_ = nullptr;
    if (!id.empty()) {
      region_ = &document_->regions.insert_or_assign(std::move(id), region).first->second;
    }
  }

  // A style element inside a region: what it sets and the region's own attributes leave open.
  void ReadNestedStyle(Attributes attributes) {
    TextStyleFlags nested;
    for (const Attribute& attribute : attributes) {
      if (IsTimedTextNamespace(attribute.uri, "#styling")) {
        ReadStyleAttribute(attribute.local, attribute.value, &nested);
      }
    }
    TextStyleFlags& flags = region_->flags;
    if (flags.bold == StyleFlag::kInherit) flags.bold = nested.bold;
    if (flags.italic == StyleFlag::kInherit) flags.italic = nested.italic;
    if (flags.underline == StyleFlag::kInherit) flags.underline = nested.underline;
    if (flags.textAlign == TextAlign::kInherit) flags.textAlign = nested.textAlign;
  }

  // The index of `value` in `table`, where `make(value)` is added when the value is new.
  template <typename Entry, typename Make>
  static uint32_t Intern(std::string_view value, std::vector<Entry>* table, IndexMap* indexes,
                         Make make) {
    if (value.empty()) return 0;
    auto found = indexes->find(value);
    if (found != indexes->end()) return found->second;
    auto index = static_cast<uint32_t>(table->size());
    table->push_back(make(value));
    indexes->emplace(value, index);
    return index;
  }

  uint32_t NewNode() {
    if (document_->nodes.size() >= kTimedTextMaxNodes) {
      Fail("more than " + std::to_string(kTimedTextMaxNodes) + " elements and texts in the body");
      return kNoNode;
    }
    document_->nodes.emplace_back();
    return static_cast<uint32_t>(document_->nodes.size() - 1);
  }

  uint32_t AddNode(Kind kind, Attributes attributes) {
    uint32_t index = NewNode();
    if (index == kNoNode) return kNoNode;
    // Filled in place: no node is added while it is, so the reference holds.
    TimedTextNode& node = document_->nodes[index];
    node.kind = kind;
    node.line = Line();
    for (const Attribute& attribute : attributes) {
      std::string_view value = attribute.value;
      if (attribute.uri.empty()) {
        double TimedTextTimes::*time = attribute.local == "begin" ? &TimedTextTimes::begin
                                       : attribute.local == "end" ? &TimedTextTimes::end
                                       : attribute.local == "dur" ? &TimedTextTimes::dur
                                                                  : nullptr;
        if (time != nullptr) {
          std::optional<double> parsed = ParseTimeExpression(value, document_->rates);
          if (!parsed) {
            Fail("the " + std::string(ElementName(kind)) + " element has a " +
                 std::string(attribute.local) + " time \"" + std::string(value) +
                 "\" that cannot be resolved");
            return kNoNode;
          }
          if (node.times == 0) {
            node.times = static_cast<uint32_t>(document_->times.size());
            document_->times.emplace_back();
          }
          document_->times[node.times].*time = *parsed;
        } else if (attribute.local == "timeContainer") {
          if (value != "par" && value != "seq") {
            Fail("the " + std::string(ElementName(kind)) +
                 " element has an unknown timeContainer \"" + std::string(value) + "\"");
            return kNoNode;
          }
          node.sequential = value == "seq";
        } else if (attribute.local == "style") {
          node.styleList = Intern(value, &document_->styleLists, &styleIndexes_, SplitTokens);
        } else if (attribute.local == "region") {
          node.region = Intern(value, &document_->regionNames, &regionIndexes_,
                               [](std::string_view name) { return std::string(name); });
        }
      } else if (attribute.uri == kXmlNamespace && attribute.local == "space") {
        if (value == "preserve") node.preserveSpace = StyleFlag::kOn;
        if (value == "default") node.preserveSpace = StyleFlag::kOff;
      } else if (IsTimedTextNamespace(attribute.uri, "#styling")) {
        ReadStyleAttribute(attribute.local, value, &node.inlineStyle);
      }
    }
    if (kind == Kind::kBody) {
      document_->hasBody = true;
      // The body inherits the root's whitespace handling.
      TimedTextNode& body = document_->nodes[index];
      if (body.preserveSpace == StyleFlag::kInherit) body.preserveSpace = rootPreserveSpace_;
    }
    return index;
  }

  std::string_view fileName_;
  std::string_view bytes_;
  bool hasCarriageReturn_ = false;
  size_t linesCountedTo_ = 0, linesCounted_ = 0;  // LFs before that offset of `bytes_`
  TimedTextDocument* document_;
  XML_Parser parser_ = nullptr;
  std::string error_;
  size_t depth_ = 0;
  size_t skipFrom_ = 0;  // the depth of the element whose content is being skipped, else 0
  bool sawRoot_ = false;
  std::array<Attribute, kTimedTextMaxAttributes> attributes_;  // of the element being started
  std::vector<Place> places_;
  std::vector<size_t> placeDepths_;
  std::vector<uint32_t> nodes_;        // the open body elements (kNoNode outside the body)
  TimedTextRegion* region_ = nullptr;  // the region being read, when it has an id
  size_t paragraphBytes_ = 0;
  uint32_t lastText_ = kNoNode, lastTextParent_ = kNoNode;  // the latest text node, its parent
  IndexMap styleIndexes_, regionIndexes_;                   // where each value is in its table
  StyleFlag rootPreserveSpace_ = StyleFlag::kInherit;
};

}  // namespace

Status ReadTimedTextDocument(size_t length, const TimedTextFill& fill, std::string_view fileName,
                             TimedTextDocument* document, std::string* message) {
  *document = TimedTextDocument{};
  DocumentReader reader(fileName, document);
  return reader.Read(length, fill, message);
}

Status ReadTimedTextDocument(std::string_view bytes, std::string_view fileName,
                             TimedTextDocument* document, std::string* message) {
  return ReadTimedTextDocument(
      bytes.size(),
      [bytes](char* buffer, size_t length) {
        std::memcpy(buffer, bytes.data(), length);
        return kNoErr;
      },
      fileName, document, message);
}

bool IsTimedTextDocument(std::string_view bytes) {
  std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(
      XML_ParserCreateNS("UTF-8", kNamespaceSeparator), XML_ParserFree);
  if (!parser) return false;
  struct Probe {
    XML_Parser parser;
    bool timedText = false;
  } probe{parser.get()};
  XML_SetUserData(parser.get(), &probe);
  XML_SetParamEntityParsing(parser.get(), XML_PARAM_ENTITY_PARSING_NEVER);
  // A document type declaration for a tt root makes the document timed text, so that reading
  // it refuses the declaration by name rather than passing it over.
  XML_SetStartDoctypeDeclHandler(parser.get(), [](void* data, const XML_Char* name, const XML_Char*,
                                                  const XML_Char*, int) {
    Probe* self = static_cast<Probe*>(data);
    std::string_view root(name);
    self->timedText = root == "tt" || (root.size() > 3 && root.substr(root.size() - 3) == ":tt");
    XML_StopParser(self->parser, XML_FALSE);
  });
  XML_SetStartElementHandler(parser.get(), [](void* data, const XML_Char* name, const XML_Char**) {
    Probe* self = static_cast<Probe*>(data);
    QualifiedName element = SplitName(name);
    self->timedText = element.local == "tt" && IsTimedTextNamespace(element.uri, "");
    XML_StopParser(self->parser, XML_FALSE);
  });
  size_t length = std::min(bytes.size(), kTimedTextProbeBytes);
  (void)XML_Parse(parser.get(), bytes.data(), static_cast<int>(length), length == bytes.size());
  return probe.timedText;
}
