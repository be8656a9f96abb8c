#include "media/core/attributed_string.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "media/core/text_encoding.h"

namespace {

MxDictionary Bold(bool on) {
  return {{"b", MxValue(on)}};
}

TEST(AttributedString, RunsAndLongestEffectiveRange) {
  MxAttributedStringRef s;
  MxDictionary base{{"size", MxValue(12.0)}};
  ASSERT_EQ(MxAttributedStringCreate(nullptr, u"abcdefgh", &base, &s), kNoErr);
  ASSERT_EQ(s->AddAttributes({0, 3}, Bold(true)), kNoErr);
  ASSERT_EQ(s->AddAttributes({3, 2}, Bold(true)), kNoErr);  // joins the run before it
  ASSERT_EQ(s->AddAttributes({5, 3}, Bold(false)), kNoErr);
  MxRange r;
  const MxDictionary* a = s->AttributesAtIndex(4, {0, 8}, &r);
  EXPECT_EQ(r, (MxRange{0, 5}));
  EXPECT_EQ(a->at("size").GetDouble(), 12.0);  // kept under added keys
  EXPECT_EQ(a->at("b").GetBool(), true);
  s->AttributesAtIndex(3, {2, 2}, &r);  // clipped to the limit
  EXPECT_EQ(r, (MxRange{2, 2}));
  s->AttributesAtIndex(6, {0, 8}, &r);
  EXPECT_EQ(r, (MxRange{5, 3}));
  // Bad ranges and indexes.
  EXPECT_EQ(s->AddAttributes({7, 2}, base), kMxErrInvalidParameter);
  EXPECT_EQ(s->AddAttributes({-1, 1}, base), kMxErrInvalidParameter);
  EXPECT_EQ(s->AttributesAtIndex(8, {0, 8}, &r), nullptr);
  MxAttributedStringRef empty;
  ASSERT_EQ(MxAttributedStringCreate(nullptr, u"", &base, &empty), kNoErr);
  EXPECT_EQ(empty->AttributesAtIndex(0, {0, 0}, &r), nullptr);
  EXPECT_EQ(empty->AddAttributes({0, 0}, base), kNoErr);
}

// Every run of `s` as its range and attributes.
std::vector<std::pair<MxRange, MxDictionary>> RunsOf(const MxAttributedString& s) {
  std::vector<std::pair<MxRange, MxDictionary>> runs;
  for (int64_t p = 0; p < s.length();) {
    MxRange r;
    const MxDictionary* a = s.AttributesAtIndex(p, {p, s.length() - p}, &r);
    runs.push_back({r, *a});
    p = r.End();
  }
  return runs;
}

// Adding shared dictionaries through a cache that outlives many strings, and that fills up and
// drops entries, gives the same runs as adding copies.
TEST(AttributedString, AddingThroughAMergeCacheMatchesAddingCopies) {
  MxAttributeMergeCache cache;
  auto base = std::make_shared<const MxDictionary>(MxDictionary{{"size", MxValue(12.0)}});
  std::vector<std::shared_ptr<const MxDictionary>> styles;
  for (int i = 0; i < 24; ++i) {
    styles.push_back(std::make_shared<const MxDictionary>(MxDictionary{
        {"key" + std::to_string(i % 6), MxValue(i % 4 == 0)}, {"size", MxValue(double(i % 3))}}));
  }
  MxAttributedStringRef cached, copied;
  for (int step = 0; step < 200; ++step) {
    if (step % 10 == 0) {
      if (cached) {
        EXPECT_EQ(RunsOf(*cached), RunsOf(*copied)) << step;
      }
      ASSERT_EQ(MxAttributedStringCreate(nullptr, u"abcdefghij", base, &cached), kNoErr);
      ASSERT_EQ(MxAttributedStringCreate(nullptr, u"abcdefghij", base.get(), &copied), kNoErr);
    }
    const MxRange range{(step * 7) % 10, 1 + step % 4};
    const auto& style = styles[static_cast<size_t>(step * 5) % styles.size()];
    const Status status = copied->AddAttributes(range, *style);
    ASSERT_EQ(cached->AddAttributes(range, style, &cache), status) << step;
  }
  EXPECT_EQ(RunsOf(*cached), RunsOf(*copied));
  // Adding what is already there changes nothing, and the run keeps joining its neighbours.
  ASSERT_EQ(MxAttributedStringCreate(nullptr, u"abc", base, &cached), kNoErr);
  ASSERT_EQ(cached->AddAttributes({1, 1}, base, &cache), kNoErr);
  EXPECT_EQ(RunsOf(*cached), (std::vector<std::pair<MxRange, MxDictionary>>{{{0, 3}, *base}}));
  EXPECT_EQ(cached->AddAttributes({1, 1}, nullptr, &cache), kMxErrInvalidParameter);
}

// Adding many ranges at once gives the runs of adding them one after the other, however they
// overlap, whatever keys they share and whatever runs the string had.
TEST(AttributedString, AddingInOrderMatchesAddingOneAfterAnother) {
  MxAttributeMergeCache cache;
  auto base = std::make_shared<const MxDictionary>(MxDictionary{{"size", MxValue(12.0)}});
  std::vector<std::shared_ptr<const MxDictionary>> styles;
  for (int i = 0; i < 8; ++i) {
    MxDictionary style{{"key" + std::to_string(i % 3), MxValue(i % 2 == 0)}};
    if (i % 4 == 1) style.emplace("size", i == 1 ? MxValue(12) : MxValue(double(i)));
    styles.push_back(std::make_shared<const MxDictionary>(std::move(style)));
  }
  uint32_t seed = 7;
  auto next = [&seed](uint32_t n) {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 16) % n;
  };
  for (int round = 0; round < 300; ++round) {
    MxAttributedStringRef batch, single;
    ASSERT_EQ(MxAttributedStringCreate(nullptr, u"abcdefghijkl", base, &batch), kNoErr);
    ASSERT_EQ(MxAttributedStringCreate(nullptr, u"abcdefghijkl", base.get(), &single), kNoErr);
    // Runs the string has before.
    const MxRange split{next(10), 1 + next(2)};
    ASSERT_EQ(batch->AddAttributes(split, {{"key1", MxValue(true)}}), kNoErr);
    ASSERT_EQ(single->AddAttributes(split, {{"key1", MxValue(true)}}), kNoErr);
    std::vector<MxRangedAttributes> entries;
    for (uint32_t n = next(12); n > 0; --n) {
      const int64_t location = next(12);
      const MxRange range{location, int64_t(next(uint32_t(13 - location)))};
      entries.push_back({range, styles[next(8)]});
      ASSERT_EQ(single->AddAttributes(range, *entries.back().attributes), kNoErr);
    }
    ASSERT_EQ(batch->AddAttributesInOrder(entries, &cache), kNoErr);
    ASSERT_EQ(RunsOf(*batch), RunsOf(*single)) << round;
  }
  // An entry that is not valid changes nothing.
  MxAttributedStringRef s;
  ASSERT_EQ(MxAttributedStringCreate(nullptr, u"abc", base, &s), kNoErr);
  const MxRangedAttributes bad[] = {{{0, 1}, styles[0]}, {{2, 2}, styles[1]}};
  EXPECT_EQ(s->AddAttributesInOrder(bad, &cache), kMxErrInvalidParameter);
  EXPECT_EQ(RunsOf(*s), (std::vector<std::pair<MxRange, MxDictionary>>{{{0, 3}, *base}}));
}

TEST(TextEncoding, RejectsInvalidInput) {
  std::string out;
  const char16_t lone[] = {u'a', 0xD800, u'b'};
  EXPECT_EQ(MxTextCreateUTF8FromUTF16(lone, 3, &out), kQorTextSampleErrStringCreation);
  const char16_t loneLow[] = {0xDC00};
  EXPECT_EQ(MxTextCreateUTF8FromUTF16(loneLow, 1, &out), kQorTextSampleErrStringCreation);

  std::u16string units;
  const uint8_t bigEndian[] = {0xD8, 0x3D, 0xDE, 0x00, 0x00, 0x41};
  ASSERT_EQ(MxTextCreateUTF16FromBytes(bigEndian, 6, true, &units), kNoErr);
  EXPECT_EQ(units, (std::u16string{0xD83D, 0xDE00, u'A'}));
  const uint8_t flipped[] = {0x00, 0xD8};  // U+00D8, or a lone surrogate the other way round
  EXPECT_EQ(MxTextCreateUTF16FromBytes(flipped, 2, true, &units), kNoErr);
  EXPECT_EQ(MxTextCreateUTF16FromBytes(flipped, 2, false, &units), kQorTextSampleErrStringCreation);
  EXPECT_EQ(MxTextCreateUTF16FromBytes(bigEndian, 5, true, &units),
            kQorTextSampleErrStringCreation);
}

}  // namespace
