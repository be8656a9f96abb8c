#include "media/formats/ttml/timed_text_document.h"

#include <expat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

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

class DocumentReader {
 public:
  DocumentReader(std::string_view fileName, TimedTextDocument* document)
      : fileName_(fileName), document_(document) {}

  Status Read(std::string_view bytes, std::string* message) {
    std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(
        XML_ParserCreateNS("UTF-8", kNamespaceSeparator), XML_ParserFree);
    if (!parser) return kMxErrAllocationFailed;
    parser_ = parser.get();
    bytes_ = bytes;
    hasCarriageReturn_ = !bytes.empty() && std::memchr(bytes.data(), '\r', bytes.size()) != nullptr;
    // A node is an element or a text, each after a '<': room for that many saves moving the
    // nodes as they are added (up to a bound, past which they grow as usual).
    constexpr size_t kReservedNodes = size_t{1} << 18;
    size_t tags = 0;
    for (const char *p = bytes.data(), *end = p + bytes.size(); p != end && tags < kReservedNodes;
         ++p, ++tags) {
      p = static_cast<const char*>(std::memchr(p, '<', static_cast<size_t>(end - p)));
      if (p == nullptr) break;
    }
    document_->nodes.reserve(tags);
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
    XML_SetCharacterDataHandler(parser_, [](void* self, const XML_Char* text, int length) {
      static_cast<DocumentReader*>(self)->Text(std::string_view(text, static_cast<size_t>(length)));
    });
    // Fed in pieces, as the parser takes an int length.
    constexpr size_t kPiece = 1 << 20;
    size_t offset = 0;
    do {
      size_t length = std::min(kPiece, bytes.size() - offset);
      bool last = offset + length == bytes.size();
      if (XML_Parse(parser_, bytes.data() + offset, static_cast<int>(length), last) !=
          XML_STATUS_OK) {
        if (error_.empty()) {
          error_ = XML_ErrorString(XML_GetErrorCode(parser_));
        }
        *message = std::string(fileName_) + ":" +
                   std::to_string(XML_GetCurrentLineNumber(parser_)) + ": " + error_;
        return kErrParse;
      }
      offset += length;
    } while (offset < bytes.size());
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

  void Start(const XML_Char* name, const XML_Char** attributes) {
    ++depth_;
    if (depth_ > kTimedTextMaxDepth) {
      return Fail("elements nested deeper than " + std::to_string(kTimedTextMaxDepth));
    }
    if (skipFrom_ != 0) return;
    size_t count = 0;
    for (const XML_Char** a = attributes; *a != nullptr; a += 2) {
      if (++count > kTimedTextMaxAttributes) {
        return Fail("an element with more than " + std::to_string(kTimedTextMaxAttributes) +
                    " attributes");
      }
      if (std::strlen(a[1]) > kTimedTextMaxAttributeBytes) {
        return Fail("an attribute value longer than " +
                    std::to_string(kTimedTextMaxAttributeBytes) + " bytes");
      }
      if (SplitName(a[0]).local == "backgroundImage") {
        return Fail("image subtitles (backgroundImage) are not supported");
      }
    }
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

  void StartContent(std::string_view local, const XML_Char** attributes) {
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
      nodes_.pop_back();
    }
    --depth_;
  }

  void Text(std::string_view text) {
    if (skipFrom_ != 0 || nodes_.empty() || nodes_.back() == kNoNode) return;
    TimedTextNode& parent = document_->nodes[nodes_.back()];
    if (parent.kind != Kind::kParagraph && parent.kind != Kind::kSpan) return;
    paragraphBytes_ += text.size();
    if (paragraphBytes_ > kTimedTextMaxParagraphBytes) {
      return Fail("a paragraph with more than " + std::to_string(kTimedTextMaxParagraphBytes) +
                  " bytes of text");
    }
    if (!parent.children.empty() && document_->nodes[parent.children.back()].kind == Kind::kText) {
      document_->nodes[parent.children.back()].text.append(text);
      return;
    }
    uint32_t parentIndex = nodes_.back();
    uint32_t index = NewNode();
    if (index == kNoNode) return;
    document_->nodes[index].text.assign(text);
    AddChild(parentIndex, index);
  }

  void Skip() { skipFrom_ = depth_; }

  void Enter(Place place, uint32_t node) {
    if (place == Place::kBody && node == kNoNode) return;  // failed
    places_.push_back(place);
    placeDepths_.push_back(depth_);
    nodes_.push_back(node);
  }

  void ReadRoot(const XML_Char** attributes) {
    std::string_view frameRate, multiplier, subFrameRate, tickRate;
    for (const XML_Char** a = attributes; *a != nullptr; a += 2) {
      QualifiedName attribute = SplitName(a[0]);
      std::string_view value = a[1];
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

  void ReadStyleElement(const XML_Char** attributes) {
    std::string id;
    TimedTextStyle style;
    for (const XML_Char** a = attributes; *a != nullptr; a += 2) {
      QualifiedName attribute = SplitName(a[0]);
      if (attribute.uri == kXmlNamespace && attribute.local == "id") id = a[1];
      if (attribute.uri.empty() && attribute.local == "style") style.styleRefs = SplitTokens(a[1]);
      if (IsTimedTextNamespace(attribute.uri, "#styling")) {
        ReadStyleAttribute(attribute.local, a[1], &style.flags);
      }
    }
    if (!id.empty()) document_->styles.insert_or_assign(std::move(id), std::move(style));
  }

  void ReadInitialElement(const XML_Char** attributes) {
    for (const XML_Char** a = attributes; *a != nullptr; a += 2) {
      QualifiedName attribute = SplitName(a[0]);
      if (IsTimedTextNamespace(attribute.uri, "#styling")) {
        ReadStyleAttribute(attribute.local, a[1], &document_->initial);
      }
    }
  }

  // Reads a region into the document and makes it the one nested styles go to.
  void ReadRegionElement(const XML_Char** attributes) {
    std::string id;
    TimedTextRegion region;
    bool origin = false, extent = false;
    for (const XML_Char** a = attributes; *a != nullptr; a += 2) {
      QualifiedName attribute = SplitName(a[0]);
      std::string_view value = a[1];
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
  void ReadNestedStyle(const XML_Char** attributes) {
    TextStyleFlags nested;
    for (const XML_Char** a = attributes; *a != nullptr; a += 2) {
      QualifiedName attribute = SplitName(a[0]);
      if (IsTimedTextNamespace(attribute.uri, "#styling")) {
        ReadStyleAttribute(attribute.local, a[1], &nested);
      }
    }
    TextStyleFlags& flags = region_->flags;
    if (flags.bold == StyleFlag::kInherit) flags.bold = nested.bold;
    if (flags.italic == StyleFlag::kInherit) flags.italic = nested.italic;
    if (flags.underline == StyleFlag::kInherit) flags.underline = nested.underline;
    if (flags.textAlign == TextAlign::kInherit) flags.textAlign = nested.textAlign;
  }

  void AddChild(uint32_t parent, uint32_t child) {
    std::vector<uint32_t>& children = document_->nodes[parent].children;
    // The smallest block the allocator hands out holds six, so a paragraph's first few children
    // cost one allocation rather than three.
    if (children.empty()) children.reserve(6);
    children.push_back(child);
  }

  uint32_t NewNode() {
    if (document_->nodes.size() >= kTimedTextMaxNodes) {
      Fail("more than " + std::to_string(kTimedTextMaxNodes) + " elements and texts in the body");
      return kNoNode;
    }
    document_->nodes.emplace_back();
    return static_cast<uint32_t>(document_->nodes.size() - 1);
  }

  uint32_t AddNode(Kind kind, const XML_Char** attributes) {
    uint32_t index = NewNode();
    if (index == kNoNode) return kNoNode;
    // Filled in place: no node is added while it is, so the reference holds.
    TimedTextNode& node = document_->nodes[index];
    node.kind = kind;
    node.line = Line();
    for (const XML_Char** a = attributes; *a != nullptr; a += 2) {
      QualifiedName attribute = SplitName(a[0]);
      std::string_view value = a[1];
      if (attribute.uri.empty()) {
        std::optional<double>* time = attribute.local == "begin" ? &node.begin
                                      : attribute.local == "end" ? &node.end
                                      : attribute.local == "dur" ? &node.dur
                                                                 : nullptr;
        if (time != nullptr) {
          *time = ParseTimeExpression(value, document_->rates);
          if (!*time) {
            Fail("the " + std::string(ElementName(kind)) + " element has a " +
                 std::string(attribute.local) + " time \"" + std::string(value) +
                 "\" that cannot be resolved");
            return kNoNode;
          }
        } else if (attribute.local == "timeContainer") {
          if (value != "par" && value != "seq") {
            Fail("the " + std::string(ElementName(kind)) +
                 " element has an unknown timeContainer \"" + std::string(value) + "\"");
            return kNoNode;
          }
          node.sequential = value == "seq";
        } else if (attribute.local == "style") {
          node.styleRefs = SplitTokens(value);
        } else if (attribute.local == "region") {
          node.region = value;
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
    } else {
      AddChild(nodes_.back(), index);
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
  std::vector<Place> places_;
  std::vector<size_t> placeDepths_;
  std::vector<uint32_t> nodes_;        // the open body elements (kNoNode outside the body)
  TimedTextRegion* region_ = nullptr;  // the region being read, when it has an id
  size_t paragraphBytes_ = 0;
  StyleFlag rootPreserveSpace_ = StyleFlag::kInherit;
};

}  // namespace

Status ReadTimedTextDocument(std::string_view bytes, std::string_view fileName,
                             TimedTextDocument* document, std::string* message) {
  *document = TimedTextDocument{};
  DocumentReader reader(fileName, document);
  return reader.Read(bytes, message);
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
  XML_SetStartDoctypeDeclHandler(
      parser.get(), [](void* data, const XML_Char*, const XML_Char*, const XML_Char*, int) {
        XML_StopParser(static_cast<Probe*>(data)->parser, XML_FALSE);
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
