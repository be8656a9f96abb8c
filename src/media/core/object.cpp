#include "media/core/object.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "media/core/value.h"

std::string MxObject::CopyDebugDescription() const {
  char text[64];
  snprintf(text, sizeof text, "<%s %p>", ClassName(), static_cast<const void*>(this));
  return text;
}

namespace {

class DefaultAllocator final : public MxAllocator {
 public:
  const char* ClassName() const override { return "MxAllocatorDefault"; }
  void* Allocate(size_t size) override { return malloc(size); }
  void Deallocate(void* memory, size_t) override { free(memory); }
};

class NullAllocator final : public MxAllocator {
 public:
  const char* ClassName() const override { return "MxAllocatorNull"; }
  void* Allocate(size_t) override { return nullptr; }
  void Deallocate(void*, size_t) override {}
};

}  // namespace

// Both allocators live for the whole process: the reference made here is never released.
MxAllocator* MxAllocatorGetDefault() {
  static MxAllocator* const allocator = new DefaultAllocator;
  return allocator;
}

MxAllocator* MxAllocatorGetNull() {
  static MxAllocator* const allocator = new NullAllocator;
  return allocator;
}

std::string MxURL::PathExtension() const {
  std::string_view p = path;
  while (p.size() > 1 && p.back() == '/') p.remove_suffix(1);
  size_t slash = p.rfind('/');
  std::string_view name = slash == std::string_view::npos ? p : p.substr(slash + 1);
  size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {};
  return std::string(name.substr(dot + 1));
}

Status MxURLCreateWithFileSystemPath(const char* path, bool isDirectory, MxURL* out) {
  if (path == nullptr || out == nullptr) return kMxErrAllocationFailed;
  out->path = path;
  out->isDirectory = isDirectory;
  return kNoErr;
}

std::optional<int64_t> MxValue::GetInt64() const {
  if (auto* n = std::get_if<int64_t>(&v)) return *n;
  if (auto* d = std::get_if<double>(&v)) {
    // Only a whole number inside the 64-bit range reads back without loss.
    if (std::trunc(*d) == *d && *d >= -9223372036854775808.0 && *d < 9223372036854775808.0)
      return static_cast<int64_t>(*d);
  }
  return std::nullopt;
}

std::optional<int32_t> MxValue::GetInt32() const {
  auto n = GetInt64();
  if (!n || *n < std::numeric_limits<int32_t>::min() || *n > std::numeric_limits<int32_t>::max())
    return std::nullopt;
  return static_cast<int32_t>(*n);
}

const MxDictionary* MxValue::GetDictionary() const {
  auto* d = std::get_if<std::shared_ptr<const MxDictionary>>(&v);
  return d ? d->get() : nullptr;
}

const MxURL* MxValue::GetURL() const {
  return std::get_if<MxURL>(&v);
}

const std::string* MxValue::GetString() const {
  return std::get_if<std::string>(&v);
}

std::optional<bool> MxValue::GetBool() const {
  if (auto* b = std::get_if<bool>(&v)) return *b;
  return std::nullopt;
}

std::optional<double> MxValue::GetDouble() const {
  if (auto* d = std::get_if<double>(&v)) return *d;
  if (auto* n = std::get_if<int64_t>(&v)) return static_cast<double>(*n);
  return std::nullopt;
}

const MxData* MxValue::GetData() const {
  return std::get_if<MxData>(&v);
}

const MxArray* MxValue::GetArray() const {
  auto* a = std::get_if<std::shared_ptr<const MxArray>>(&v);
  return a ? a->get() : nullptr;
}

MxObject* MxValue::GetObject() const {
  auto* o = std::get_if<MxRef<MxObject>>(&v);
  return o ? o->get() : nullptr;
}

bool operator==(const MxValue& a, const MxValue& b) {
  bool aNumber = std::holds_alternative<int64_t>(a.v) || std::holds_alternative<double>(a.v);
  bool bNumber = std::holds_alternative<int64_t>(b.v) || std::holds_alternative<double>(b.v);
  if (aNumber || bNumber) {
    if (!aNumber || !bNumber) return false;
    auto* x = std::get_if<int64_t>(&a.v);
    auto* y = std::get_if<int64_t>(&b.v);
    if (x && y) return *x == *y;
    return *a.GetDouble() == *b.GetDouble();
  }
  if (a.v.index() != b.v.index()) return false;
  if (auto* d = a.GetDictionary()) {
    const MxDictionary* e = b.GetDictionary();
    return d == e || *d == *e;
  }
  if (auto* x = a.GetArray()) {
    const MxArray* y = b.GetArray();
    return x == y || *x == *y;
  }
  if (std::holds_alternative<MxRef<MxObject>>(a.v)) return a.GetObject() == b.GetObject();
  if (auto* s = a.GetString()) return *s == *b.GetString();
  if (auto* d = a.GetData()) return *d == *b.GetData();
  if (auto* u = a.GetURL()) return *u == *b.GetURL();
  if (auto f = a.GetBool()) return *f == *b.GetBool();
  return true;  // both empty
}

const MxValue* MxDictionaryGetValue(const MxDictionary* dictionary, std::string_view key) {
  if (dictionary == nullptr) return nullptr;
  auto it = dictionary->find(key);
  return it == dictionary->end() ? nullptr : &it->second;
}
