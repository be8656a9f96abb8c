#include "master/attribute_list.h"

#include <charconv>

namespace {

// Real tags carry a dozen attributes at most; the limit keeps the duplicate search short.
constexpr size_t kMaxAttributes = 64;

bool IsNameCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

bool IsTokenCharacter(char c) {
  return c != '"' && c != ',' && c != ' ' && c != '\t' && c != '\r' && c != '\n';
}

}  // namespace

bool IsQuotableText(std::string_view value) {
  return value.find_first_of("\"\r\n") == std::string_view::npos;
}

Status AttributeList::Parse(std::string_view text, AttributeList* list, std::string* error) {
  list->attributes_.clear();
  size_t at = 0;
  while (at < text.size()) {
    size_t nameStart = at;
    while (at < text.size() && IsNameCharacter(text[at])) at++;
    if (at == nameStart || at >= text.size() || text[at] != '=') {
      *error = "attribute name expected at column " + std::to_string(nameStart + 1);
      return kErrPlaylistSyntax;
    }
    if (list->attributes_.size() == kMaxAttributes) {
      *error = "more than " + std::to_string(kMaxAttributes) + " attributes";
      return kErrPlaylistSyntax;
    }
    PlaylistAttribute attribute;
    attribute.name = text.substr(nameStart, at - nameStart);
    if (list->Find(attribute.name)) {
      *error = "attribute " + attribute.name + " occurs twice";
      return kErrPlaylistSyntax;
    }
    at++;  // '='
    if (at < text.size() && text[at] == '"') {
      size_t close = text.find('"', at + 1);
      if (close == std::string_view::npos) {
        *error = "quoted string of " + attribute.name + " is not closed";
        return kErrPlaylistSyntax;
      }
      attribute.value = text.substr(at + 1, close - at - 1);
      attribute.quoted = true;
      if (!IsQuotableText(attribute.value)) {
        *error = "quoted string of " + attribute.name + " holds a line break";
        return kErrPlaylistSyntax;
      }
      at = close + 1;
    } else {
      size_t valueStart = at;
      while (at < text.size() && IsTokenCharacter(text[at])) at++;
      if (at == valueStart) {
        *error = "attribute " + attribute.name + " has no value";
        return kErrPlaylistSyntax;
      }
      attribute.value = text.substr(valueStart, at - valueStart);
    }
    list->attributes_.push_back(std::move(attribute));
    if (at == text.size()) break;
    if (text[at] != ',') {
      *error = "unexpected '" + std::string(1, text[at]) + "' after attribute " +
               list->attributes_.back().name + " (a quote inside a quoted string?)";
      return kErrPlaylistSyntax;
    }
    at++;
    if (at == text.size()) {
      *error = "attribute list ends with a comma";
      return kErrPlaylistSyntax;
    }
  }
  return kNoErr;
}

const PlaylistAttribute* AttributeList::Find(std::string_view name) const {
  for (const auto& attribute : attributes_)
    if (attribute.name == name) return &attribute;
  return nullptr;
}

std::string_view AttributeList::Value(std::string_view name) const {
  const PlaylistAttribute* attribute = Find(name);
  return attribute ? std::string_view(attribute->value) : std::string_view();
}

void AttributeList::Set(std::string_view name, std::string_view value, bool quoted) {
  for (auto& attribute : attributes_) {
    if (attribute.name == name) {
      attribute.value = value;
      attribute.quoted = quoted;
      return;
    }
  }
  attributes_.push_back({std::string(name), std::string(value), quoted});
}

std::string AttributeList::Text() const {
  std::string text;
  for (const auto& attribute : attributes_) {
    if (!text.empty()) text += ',';
    text += attribute.name;
    text += '=';
    if (attribute.quoted) text += '"';
    text += attribute.value;
    if (attribute.quoted) text += '"';
  }
  return text;
}

std::optional<uint64_t> ParseDecimalInteger(std::string_view text) {
  uint64_t value = 0;
  if (text.empty() || text.size() > 20) return std::nullopt;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}
