// The attribute list of a playlist tag: NAME=value pairs separated by commas, where a value is
// either a quoted string ("..." holding no double quote, CR or LF) or an unquoted token (no
// quote, comma or white space). Names are upper-case letters, digits and '-', and a name occurs
// at most once in a list. Order is kept, so a list that was parsed and not changed prints back
// exactly as it was read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/status.h"

struct PlaylistAttribute {
  std::string name;
  std::string value;  // without the quotes of a quoted string
  bool quoted = false;
};

class AttributeList {
 public:
  // On failure returns kErrPlaylistSyntax with a description of the fault in `error`.
  static Status Parse(std::string_view text, AttributeList* list, std::string* error);

  const PlaylistAttribute* Find(std::string_view name) const;
  // The value of `name`, or empty when absent.
  std::string_view Value(std::string_view name) const;
  bool Has(std::string_view name) const { return Find(name) != nullptr; }
  // Replaces the value of `name` in place, or appends the attribute when it is absent.
  void Set(std::string_view name, std::string_view value, bool quoted);

  std::string Text() const;
  const std::vector<PlaylistAttribute>& attributes() const { return attributes_; }

 private:
  std::vector<PlaylistAttribute> attributes_;
};

// True when `value` may stand between the quotes of a quoted string.
bool IsQuotableText(std::string_view value);

// A decimal-integer value: 1 to 20 digits, at most 2^64 - 1.
std::optional<uint64_t> ParseDecimalInteger(std::string_view text);
