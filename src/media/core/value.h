// Property values of the media library: numbers, booleans, strings, data, dictionaries, arrays,
// file URLs and references to library objects. They are immutable values with value semantics (a
// dictionary or array is shared, never changed after it is made), which gives the same guarantees
// as reference-counted immutable objects. An object reference keeps one reference to its object.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "common/status.h"
#include "media/core/object.h"

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

Status MxURLCreateWithFileSystemPath(const char* path, bool isDirectory, MxURL* out);

struct MxValue;
using MxDictionary = std::map<std::string, MxValue, std::less<>>;
using MxArray = std::vector<MxValue>;
using MxData = std::vector<uint8_t>;

struct MxValue {
  std::variant<std::monostate, bool, int64_t, double, std::string, MxData,
               std::shared_ptr<const MxDictionary>, MxURL, std::shared_ptr<const MxArray>,
               MxRef<MxObject>>
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
  MxValue(MxData d) : v(std::move(d)) {}
  MxValue(MxArray a) : v(std::make_shared<const MxArray>(std::move(a))) {}
  // Keeps its own reference to the object.
  template <class T>
  MxValue(const MxRef<T>& object) : v(MxRef<MxObject>::Retained(object.get())) {}
  static MxValue Retaining(MxObject* object) { return MxValue(MxRef<MxObject>::Retained(object)); }

  // Numbers read back at a given width: nullopt when the value is not a number or does not fit.
  std::optional<int64_t> GetInt64() const;
  std::optional<int32_t> GetInt32() const;
  const MxDictionary* GetDictionary() const;
  const MxURL* GetURL() const;
  const std::string* GetString() const;
  std::optional<bool> GetBool() const;
  // Any number as a double.
  std::optional<double> GetDouble() const;
  const MxData* GetData() const;
  const MxArray* GetArray() const;
  MxObject* GetObject() const;
  // The referenced object when it is of class T, else null.
  template <class T>
  T* GetObjectAs() const {
    return dynamic_cast<T*>(GetObject());
  }
};

// Deep equality: numbers compare by value (an integer equals the same whole double), dictionaries
// and arrays by content, object references by identity.
bool operator==(const MxValue& a, const MxValue& b);

// A dictionary value looked up by key: null when the key is absent.
const MxValue* MxDictionaryGetValue(const MxDictionary* dictionary, std::string_view key);
