#include "master/uri_reference.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace {

bool HasScheme(std::string_view uri) {
  size_t colon = uri.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  if (!isalpha(static_cast<unsigned char>(uri[0]))) return false;
  for (size_t i = 1; i < colon; i++) {
    char c = uri[i];
    if (!isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

// Characters a path segment may hold as they are; everything else is percent-encoded. A colon
// is encoded too: in the first segment it would make the reference read as a scheme.
bool IsPathCharacter(unsigned char c) {
  return isalnum(c) ||
         std::string_view("-._~!$&'()*+,;=@").find(static_cast<char>(c)) != std::string_view::npos;
}

std::string EncodeSegment(const std::string& segment) {
  std::string encoded;
  for (const char ch : segment) {
    const auto c = static_cast<unsigned char>(ch);
    if (IsPathCharacter(c)) {
      encoded += static_cast<char>(c);
    } else {
      char escape[4];
      snprintf(escape, sizeof escape, "%%%02X", c);
      encoded += escape;
    }
  }
  return encoded;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Removes "." segments and folds "name/.." pairs; ".." segments that climb above the start stay.
std::string RemoveDotSegments(std::string_view path) {
  std::vector<std::string_view> kept;
  size_t start = 0;
  while (true) {
    size_t slash = path.find('/', start);
    std::string_view segment = path.substr(
        start, slash == std::string_view::npos ? std::string_view::npos : slash - start);
    bool last = slash == std::string_view::npos;
    if (segment == ".") {
      if (last) kept.push_back("");
    } else if (segment == "..") {
      if (!kept.empty() && kept.back() != "..") {
        kept.pop_back();
        if (last) kept.push_back("");
      } else {
        kept.push_back(segment);
      }
    } else {
      kept.push_back(segment);
    }
    if (last) break;
    start = slash + 1;
  }
  std::string result;
  for (size_t i = 0; i < kept.size(); i++) {
    if (i) result += '/';
    result += kept[i];
  }
  return result;
}

}  // namespace

bool IsRelativeReference(std::string_view uri) {
  return !uri.empty() && uri[0] != '/' && !HasScheme(uri);
}

Status RelativeDirectoryPrefix(const std::string& from, const std::string& to,
                               std::string* prefix) {
  std::error_code error;
  fs::path absoluteFrom = fs::absolute(from.empty() ? "." : from, error);
  if (error) return StatusFromErrno(error.value());
  fs::path absoluteTo = fs::absolute(to.empty() ? "." : to, error);
  if (error) return StatusFromErrno(error.value());
  fs::path relative =
      absoluteFrom.lexically_normal().lexically_relative(absoluteTo.lexically_normal());
  prefix->clear();
  for (const fs::path& step : relative) {
    std::string name = step.string();
    if (name.empty() || name == ".") continue;
    *prefix += EncodeSegment(name);
    *prefix += '/';
  }
  return kNoErr;
}

Status RelativeFileReference(const std::string& file, const std::string& directory,
                             std::string* uri) {
  if (Status status = RelativeDirectoryPrefix(file, directory, uri)) return status;
  if (uri->empty()) return StatusFromErrno(EISDIR);  // `file` is `directory` itself
  uri->pop_back();                                   // the '/' after the file's name
  return kNoErr;
}

std::string RebaseUri(std::string_view prefix, std::string_view uri) {
  if (!IsRelativeReference(uri)) return std::string(uri);
  size_t tail = uri.find_first_of("?#");
  std::string_view path = uri.substr(0, tail);
  std::string_view rest = tail == std::string_view::npos ? std::string_view() : uri.substr(tail);
  std::string joined = std::string(prefix) + std::string(path);
  return RemoveDotSegments(joined) + std::string(rest);
}

bool UriToLocalPath(std::string_view uri, std::string* path) {
  if (!IsRelativeReference(uri)) return false;
  std::string_view encoded = uri.substr(0, uri.find_first_of("?#"));
  if (encoded.empty()) return false;
  path->clear();
  for (size_t i = 0; i < encoded.size(); i++) {
    if (encoded[i] != '%') {
      *path += encoded[i];
      continue;
    }
    if (i + 2 >= encoded.size()) return false;
    int high = HexValue(encoded[i + 1]);
    int low = HexValue(encoded[i + 2]);
    if (high < 0 || low < 0 || (high == 0 && low == 0)) return false;
    *path += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return true;
}
