// The run-length cursor over counted runs (sample deltas, composition offsets) and first-indexed
// runs (chunks), walked item by item both ways, and table reads outside a table.
#include "media/formats/movie/run_length_cursor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "media/formats/movie/movie_builder.h"

using movie_builder::U32;

namespace {

// Entries of 8 bytes whose first field is `firsts[i]` and second is unused.
EntryTable Table(const std::vector<uint32_t>& firsts, std::string* bytes) {
  bytes->clear();
  for (uint32_t v : firsts) *bytes += U32(v) + U32(0xEEEEEEEE);
  EntryTable t;
  t.bytes = {reinterpret_cast<const uint8_t*>(bytes->data()), bytes->size()};
  t.count = uint32_t(firsts.size());
  t.entrySize = 8;
  return t;
}

}  // namespace

TEST(RunLengthCursor, WalksEveryItemBothWays) {
  struct Case {
    const char* name;
    std::vector<uint32_t> entries;
    int64_t itemCount;            // -1: counted runs
    std::vector<uint32_t> runOf;  // the run of each item, in order
  };
  const Case cases[] = {
      {"no runs", {}, -1, {}},
      {"only empty runs", {0, 0}, -1, {}},
      {"one run", {3}, -1, {0, 0, 0}},
      {"empty runs first, between and last", {0, 2, 0, 0, 1, 0}, -1, {1, 1, 4}},
      {"runs of one", {1, 1, 1}, -1, {0, 1, 2}},
      {"first-indexed, one run to the end", {1}, 3, {0, 0, 0}},
      {"first-indexed, several runs", {1, 3, 4}, 6, {0, 0, 1, 2, 2, 2}},
      {"first-indexed, a run starting where the next does", {1, 3, 3, 5}, 5, {0, 0, 2, 2, 3}},
      {"first-indexed, a run past the last item", {1, 2, 9}, 3, {0, 1, 1}},
      {"first-indexed, no items", {1}, 0, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bytes;
    const EntryTable table = Table(c.entries, &bytes);
    RunLengthCursor cursor = c.itemCount < 0
                                 ? RunLengthCursor::Counted(table)
                                 : RunLengthCursor::FirstIndexed(table, uint64_t(c.itemCount));
    if (c.runOf.empty()) {
      EXPECT_FALSE(cursor.StepForward());
      EXPECT_FALSE(cursor.StepBackward());
      continue;
    }
    // Forward to the last item, where a further step is refused and the cursor stays.
    EXPECT_FALSE(cursor.StepBackward());
    for (size_t i = 0; i < c.runOf.size(); ++i) {
      EXPECT_EQ(cursor.Item(), i);
      EXPECT_EQ(cursor.Run(), c.runOf[i]) << "item " << i;
      EXPECT_EQ(cursor.StepForward(), i + 1 < c.runOf.size()) << "item " << i;
    }
    EXPECT_EQ(cursor.Item(), c.runOf.size() - 1);
    EXPECT_EQ(cursor.Run(), c.runOf.back());
    // And back across every run edge to the first item.
    for (size_t i = c.runOf.size(); i-- > 0;) {
      EXPECT_EQ(cursor.Item(), i);
      EXPECT_EQ(cursor.Run(), c.runOf[i]) << "item " << i;
      EXPECT_EQ(cursor.StepBackward(), i > 0) << "item " << i;
    }
    EXPECT_EQ(cursor.Item(), 0u);
    EXPECT_EQ(cursor.Run(), c.runOf.front());
  }
}

// Reading past a table is a fault of the caller: assertions catch it, and without them the read
// answers 0 instead of touching bytes outside the table.
TEST(RunLengthCursorDeathTest, ReadsOutsideATableAssert) {
  std::string bytes;
  const EntryTable table = Table({7, 8}, &bytes);
  uint64_t value = 0;
  EXPECT_DEBUG_DEATH(value += table.Field(2, 0, 4), "index < count");
  EXPECT_DEBUG_DEATH(value += table.Field(0, 6, 4), "entrySize");
  SampleSizeBox sizes;
  sizes.sampleCount = 2;
  sizes.table = table.bytes;
  EXPECT_DEBUG_DEATH(value += sizes.SizeAt(2), "sampleCount");
  // With assertions the reads ran in the death tests' children and left `value` alone.
  EXPECT_EQ(value, 0u);
}
