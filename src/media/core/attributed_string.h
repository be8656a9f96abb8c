// MxAttributedString: UTF-16 text with attribute dictionaries over ranges of it. Attributes are
// kept as runs (a start position and a shared dictionary, each run ending where the next
// starts), so a style applied to a range costs a split of at most two runs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "media/core/object.h"
#include "media/core/value.h"

// Dictionaries made by adding attributes to run attributes, remembered across strings: adding the
// same shared attributes to the same run attributes answers the dictionary made the first time,
// so that converting many samples styled alike copies no dictionary after the first few and equal
// runs share one dictionary. Holds at most a few entries; the oldest one goes first.
class MxAttributeMergeCache {
 public:
  using Shared = std::shared_ptr<const MxDictionary>;
  // The attributes of `base` with every key of `added` set to its value there.
  const Shared& Merged(const Shared& base, const Shared& added);
  // Whether `a` and `b` are known to compare unequal: one was made from the other by a merge that
  // changed a value. False says nothing.
  bool KnownDifferent(const MxDictionary* a, const MxDictionary* b) const;

 private:
  static constexpr size_t kCapacity = 16;
  struct Entry {
    Shared base, added, merged;
    bool differs;  // merged compares unequal to base
  };
  std::vector<Entry> entries_;
  size_t next_ = 0;  // the entry replaced next once the cache is full
};

struct MxRange {
  int64_t location = 0;
  int64_t length = 0;
  int64_t End() const { return location + length; }
  bool operator==(const MxRange&) const = default;
};

// Attributes to add over a range.
struct MxRangedAttributes {
  MxRange range;
  std::shared_ptr<const MxDictionary> attributes;
};

class MxAttributedString final : public MxObject {
 public:
  const char* ClassName() const override { return "MxAttributedString"; }

  const std::u16string& string() const { return text_; }
  int64_t length() const { return static_cast<int64_t>(text_.size()); }

  // The attributes at `index` (0 <= index < length), and the longest range around it, clipped to
  // `limit`, over which the attributes are equal. Null when the index is outside the text.
  const MxDictionary* AttributesAtIndex(int64_t index, MxRange limit, MxRange* effective) const;
  // The same as the run's shared dictionary: a copy of it keeps the dictionary alive.
  const std::shared_ptr<const MxDictionary>& SharedAttributesAtIndex(int64_t index, MxRange limit,
                                                                     MxRange* effective) const;
  // Adds or replaces the given keys over `range`, keeping other attributes there.
  Status AddAttributes(MxRange range, const MxDictionary& attributes);
  // The same, with the merged dictionaries made or found through `cache`.
  Status AddAttributes(MxRange range, const std::shared_ptr<const MxDictionary>& attributes,
                       MxAttributeMergeCache* cache);
  // Adds the attributes of every entry over its range, the entries one after the other: the
  // result is that of AddAttributes called for each in turn, at a cost of O((n + runs) log n) for
  // n entries however they overlap (times the number of distinct keys they set). Nothing changes
  // when an entry is not valid.
  Status AddAttributesInOrder(std::span<const MxRangedAttributes> entries,
                              MxAttributeMergeCache* cache);

 private:
  friend Status MxAttributedStringCreate(MxAllocator*, std::u16string,
                                         std::shared_ptr<const MxDictionary>,
                                         MxRef<MxAttributedString>*);
  struct Run {
    int64_t start;
    std::shared_ptr<const MxDictionary> attributes;
  };
  MxAttributedString() = default;
  size_t RunIndexAt(int64_t index) const;
  size_t SplitAt(int64_t index);
  bool ValidRange(MxRange range) const;
  void Coalesce(size_t from, size_t to, const MxAttributeMergeCache* cache = nullptr);

  std::u16string text_;
  std::vector<Run> runs_;  // sorted by start; the first starts at 0 (none for an empty text)
};

using MxAttributedStringRef = MxRef<MxAttributedString>;

// Makes an attributed string over `text` with `attributes` (or none) over all of it.
Status MxAttributedStringCreate(MxAllocator* allocator, std::u16string text,
                                const MxDictionary* attributes, MxAttributedStringRef* out);
// The same, sharing `attributes` (none when null) instead of copying them.
Status MxAttributedStringCreate(MxAllocator* allocator, std::u16string text,
                                std::shared_ptr<const MxDictionary> attributes,
                                MxAttributedStringRef* out);
