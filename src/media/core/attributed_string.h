// MxAttributedString: UTF-16 text with attribute dictionaries over ranges of it. Attributes are
// kept as runs (a start position and a shared dictionary, each run ending where the next
// starts), so a style applied to a range costs a split of at most two runs.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "media/core/object.h"
#include "media/core/value.h"

struct MxRange {
  int64_t location = 0;
  int64_t length = 0;
  int64_t End() const { return location + length; }
  bool operator==(const MxRange&) const = default;
};

class MxAttributedString final : public MxObject {
 public:
  const char* ClassName() const override { return "MxAttributedString"; }

  const std::u16string& string() const { return text_; }
  int64_t length() const { return static_cast<int64_t>(text_.size()); }

  // The attributes at `index` (0 <= index < length), and the longest range around it, clipped to
  // `limit`, over which the attributes are equal. Null when the index is outside the text.
  const MxDictionary* AttributesAtIndex(int64_t index, MxRange limit, MxRange* effective) const;
  // Replaces the attributes over `range` by `attributes`.
  [[nodiscard]] OSStatus SetAttributes(MxRange range, const MxDictionary& attributes);
  // Adds or replaces the given keys over `range`, keeping other attributes there.
  [[nodiscard]] OSStatus AddAttributes(MxRange range, const MxDictionary& attributes);

 private:
  friend OSStatus MxAttributedStringCreate(MxAllocator*, std::u16string, const MxDictionary*,
                                           MxRef<MxAttributedString>*);
  struct Run {
    int64_t start;
    std::shared_ptr<const MxDictionary> attributes;
  };
  MxAttributedString() = default;
  size_t RunIndexAt(int64_t index) const;
  size_t SplitAt(int64_t index);
  bool ValidRange(MxRange range) const;
  void Coalesce();

  std::u16string text_;
  std::vector<Run> runs_;  // sorted by start; the first starts at 0 (none for an empty text)
};

using MxAttributedStringRef = MxRef<MxAttributedString>;

// Makes an attributed string over `text` with `attributes` (or none) over all of it.
[[nodiscard]] OSStatus MxAttributedStringCreate(MxAllocator* allocator, std::u16string text,
                                                const MxDictionary* attributes,
                                                MxAttributedStringRef* out);
