// A display name goes into a playlist's quoted string, which must not end early nor break the
// line: a double quote becomes a single quote, a CR or LF a space.
#pragma once

#include <string>

inline std::string QuotableName(std::string name) {
  for (char& c : name) {
    if (c == '"') c = '\'';
    if (c == '\r' || c == '\n') c = ' ';
  }
  return name;
}
