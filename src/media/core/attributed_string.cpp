#include "media/core/attributed_string.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

#include "media/core/error_signal.h"

namespace {

const std::shared_ptr<const MxDictionary>& EmptyAttributes() {
  static const auto empty = std::make_shared<const MxDictionary>();
  return empty;
}

// `base` with the keys of `added` set to their values there. When that changes nothing (every
// key is there already with an equal value of the same kind), `base` itself. `differs` (if given)
// tells whether the answer compares unequal to `base`.
std::shared_ptr<const MxDictionary> Merge(const std::shared_ptr<const MxDictionary>& base,
                                          const MxDictionary& added, bool* differs = nullptr) {
  bool changes = false, unequal = false;
  for (const auto& [key, value] : added) {
    auto it = base->find(key);
    if (it == base->end() || !(it->second == value)) {
      changes = unequal = true;
      break;
    }
    // An integer equals the same whole double, yet the merge stores the added kind.
    changes = changes || it->second.v.index() != value.v.index();
  }
  if (differs) *differs = unequal;
  if (!changes) return base;
  MxDictionary merged = *base;
  for (const auto& [key, value] : added) merged.insert_or_assign(key, value);
  return std::make_shared<const MxDictionary>(std::move(merged));
}

}  // namespace

const MxAttributeMergeCache::Shared& MxAttributeMergeCache::Merged(const Shared& base,
                                                                   const Shared& added) {
  for (const Entry& entry : entries_) {
    if (entry.base == base && entry.added == added) return entry.merged;
  }
  Entry entry{base, added, nullptr, false};
  entry.merged = Merge(base, *added, &entry.differs);
  if (entries_.size() < kCapacity) {
    entries_.push_back(std::move(entry));
    return entries_.back().merged;
  }
  Entry& slot = entries_[next_];
  next_ = (next_ + 1) % kCapacity;
  slot = std::move(entry);
  return slot.merged;
}

bool MxAttributeMergeCache::KnownDifferent(const MxDictionary* a, const MxDictionary* b) const {
  for (const Entry& entry : entries_) {
    if (!entry.differs) continue;
    if ((entry.base.get() == a && entry.merged.get() == b) ||
        (entry.base.get() == b && entry.merged.get() == a))
      return true;
  }
  return false;
}

Status MxAttributedStringCreate(MxAllocator* allocator, std::u16string text,
                                const MxDictionary* attributes, MxAttributedStringRef* out) {
  return MxAttributedStringCreate(
      allocator, std::move(text),
      attributes ? std::make_shared<const MxDictionary>(*attributes) : nullptr, out);
}

Status MxAttributedStringCreate(MxAllocator*, std::u16string text,
                                std::shared_ptr<const MxDictionary> attributes,
                                MxAttributedStringRef* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  auto* string = new MxAttributedString;
  string->text_ = std::move(text);
  if (!string->text_.empty())
    string->runs_.push_back({0, attributes ? std::move(attributes) : EmptyAttributes()});
  *out = MxAttributedStringRef::Adopt(string);
  return kNoErr;
}

size_t MxAttributedString::RunIndexAt(int64_t index) const {
  auto it = std::upper_bound(runs_.begin(), runs_.end(), index,
                             [](int64_t i, const Run& run) { return i < run.start; });
  return static_cast<size_t>(it - runs_.begin()) - 1;
}

// Makes `index` the start of a run and answers that run's position (runs_.size() at the end).
size_t MxAttributedString::SplitAt(int64_t index) {
  if (index >= length()) return runs_.size();
  size_t i = RunIndexAt(index);
  if (runs_[i].start == index) return i;
  runs_.insert(runs_.begin() + static_cast<std::ptrdiff_t>(i) + 1, {index, runs_[i].attributes});
  return i + 1;
}

bool MxAttributedString::ValidRange(MxRange range) const {
  return range.location >= 0 && range.length >= 0 && range.location <= length() &&
         range.length <= length() - range.location;
}

// Runs from..to (inclusive) that equal the run before them join it, so runs stay few however
// often styles are applied; only the runs a change touched need looking at.
void MxAttributedString::Coalesce(size_t from, size_t to, const MxAttributeMergeCache* cache) {
  if (runs_.empty()) return;
  from = std::max<size_t>(from, 1);
  to = std::min(to, runs_.size() - 1);
  if (from > to) return;
  size_t write = from;
  for (size_t read = from; read <= to; ++read) {
    const Run& previous = runs_[write - 1];
    const MxDictionary* a = previous.attributes.get();
    const MxDictionary* b = runs_[read].attributes.get();
    if (a == b || ((cache == nullptr || !cache->KnownDifferent(a, b)) && *a == *b)) continue;
    if (write != read) runs_[write] = std::move(runs_[read]);
    ++write;
  }
  runs_.erase(runs_.begin() + static_cast<std::ptrdiff_t>(write),
              runs_.begin() + static_cast<std::ptrdiff_t>(to) + 1);
}

const MxDictionary* MxAttributedString::AttributesAtIndex(int64_t index, MxRange limit,
                                                          MxRange* effective) const {
  return SharedAttributesAtIndex(index, limit, effective).get();
}

const std::shared_ptr<const MxDictionary>& MxAttributedString::SharedAttributesAtIndex(
    int64_t index, MxRange limit, MxRange* effective) const {
  static const std::shared_ptr<const MxDictionary> kNone;
  if (index < 0 || index >= length()) return kNone;
  size_t i = RunIndexAt(index);
  int64_t start = runs_[i].start;
  int64_t end = i + 1 < runs_.size() ? runs_[i + 1].start : length();
  if (effective) {
    int64_t lo = std::max(start, limit.location), hi = std::min(end, limit.End());
    if (lo > index) lo = index;
    if (hi <= index) hi = index + 1;
    *effective = {lo, hi - lo};
  }
  return runs_[i].attributes;
}

Status MxAttributedString::AddAttributes(MxRange range, const MxDictionary& attributes) {
  if (!ValidRange(range)) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (range.length == 0) return kNoErr;
  size_t first = SplitAt(range.location);
  size_t last = SplitAt(range.End());
  for (size_t i = first; i < last; ++i)
    runs_[i].attributes = Merge(runs_[i].attributes, attributes);
  Coalesce(first, last);
  return kNoErr;
}

Status MxAttributedString::AddAttributes(MxRange range,
                                         const std::shared_ptr<const MxDictionary>& attributes,
                                         MxAttributeMergeCache* cache) {
  if (!attributes || cache == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (!ValidRange(range)) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (range.length == 0) return kNoErr;
  size_t first = SplitAt(range.location);
  size_t last = SplitAt(range.End());
  for (size_t i = first; i < last; ++i)
    runs_[i].attributes = cache->Merged(runs_[i].attributes, attributes);
  Coalesce(first, last, cache);
  return kNoErr;
}

Status MxAttributedString::AddAttributesInOrder(std::span<const MxRangedAttributes> entries,
                                                MxAttributeMergeCache* cache) {
  if (cache == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  for (const MxRangedAttributes& entry : entries) {
    if (!entry.attributes || !ValidRange(entry.range))
      return QorSignalErrorAt(kMxErrInvalidParameter);
  }
  // The distinct keys the entries set, and for each entry the keys it sets.
  std::map<std::string_view, size_t> keyIndex;
  std::vector<std::vector<size_t>> keysOf(entries.size());
  for (size_t i = 0; i < entries.size(); ++i) {
    for (const auto& [key, value] : *entries[i].attributes)
      keysOf[i].push_back(keyIndex.emplace(key, keyIndex.size()).first->second);
  }
  // Where an entry begins to cover the text and where it stops.
  struct Edge {
    int64_t at;
    size_t entry;
    bool begins;
  };
  std::vector<Edge> edges;
  edges.reserve(entries.size() * 2);
  for (size_t i = 0; i < entries.size(); ++i) {
    if (entries[i].range.length == 0) continue;
    edges.push_back({entries[i].range.location, i, true});
    edges.push_back({entries[i].range.End(), i, false});
  }
  std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.at < b.at; });

  // Between two neighbouring edges or run starts, each key takes its value from the last entry
  // covering the piece that sets it; the piece's attributes are its run's with the entries that
  // give a key its value merged in their order.
  std::vector<std::set<size_t>> covering(keyIndex.size());
  std::vector<size_t> givers;
  std::vector<Run> pieces;
  pieces.reserve(runs_.size() + edges.size());
  size_t run = 0, edge = 0;
  for (int64_t at = 0; at < length();) {
    for (; edge < edges.size() && edges[edge].at == at; ++edge) {
      for (size_t key : keysOf[edges[edge].entry]) {
        if (edges[edge].begins)
          covering[key].insert(edges[edge].entry);
        else
          covering[key].erase(edges[edge].entry);
      }
    }
    while (run + 1 < runs_.size() && runs_[run + 1].start <= at) ++run;
    int64_t stop = length();
    if (run + 1 < runs_.size()) stop = std::min(stop, runs_[run + 1].start);
    if (edge < edges.size()) stop = std::min(stop, edges[edge].at);
    givers.clear();
    for (const std::set<size_t>& entriesWithKey : covering) {
      if (!entriesWithKey.empty()) givers.push_back(*entriesWithKey.rbegin());
    }
    std::sort(givers.begin(), givers.end());
    givers.erase(std::unique(givers.begin(), givers.end()), givers.end());
    std::shared_ptr<const MxDictionary> attributes = runs_[run].attributes;
    for (size_t giver : givers) attributes = cache->Merged(attributes, entries[giver].attributes);
    pieces.push_back({at, std::move(attributes)});
    at = stop;
  }
  runs_ = std::move(pieces);
  if (!runs_.empty()) Coalesce(1, runs_.size() - 1, cache);
  return kNoErr;
}
