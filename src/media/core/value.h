// Property values of the media library: numbers, booleans, strings, data, dictionaries and file
// URLs. They are immutable values with value semantics (a dictionary is shared, never changed
// after it is made), which gives the same guarantees as reference-counted immutable objects.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "common/status.h"

// A file URL: an absolute or relative file-system path.
struct MxURL {
  std::string path;
  bool isDirectory = false;

  // The last path component's text after its last '.', or empty when there is none (a name
  // that only starts with a dot, such as ".vtt", has no extension).
  std::string PathExtension() const;
  std::string Description() const { return "file://" + path; }
  bool operator==(const MxURL& other) const = default;
};

[[nodiscard]] OSStatus MxURLCreateWithFileSystemPath(const char* path, bool isDirectory,
                                                     MxURL* out);

struct MxValue;
using MxDictionary = std::map<std::string, MxValue, std::less<>>;

struct MxValue {
  std::variant<std::monostate, bool, int64_t, double, std::string, std::vector<uint8_t>,
               std::shared_ptr<const MxDictionary>, MxURL>
      v;

  MxValue() = default;
  MxValue(bool b) : v(b) {}
  MxValue(int64_t n) : v(n) {}
  MxValue(int32_t n) : v(static_cast<int64_t>(n)) {}
  MxValue(double d) : v(d) {}
  MxValue(std::string s) : v(std::move(s)) {}
  MxValue(const char* s) : v(std::string(s)) {}
  MxValue(MxDictionary d) : v(std::make_shared<const MxDictionary>(std::move(d))) {}
  MxValue(MxURL u) : v(std::move(u)) {}

  bool IsNull() const { return std::holds_alternative<std::monostate>(v); }
  // Numbers read back at a given width: nullopt when the value is not a number or does not fit.
  std::optional<int64_t> GetInt64() const;
  std::optional<int32_t> GetInt32() const;
  const MxDictionary* GetDictionary() const;
  const MxURL* GetURL() const;
  const std::string* GetString() const;
};
