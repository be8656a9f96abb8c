#include "media/formatreader/text_sample.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "media/core/text_encoding.h"
#include "media/formatreader/text_bytes.h"

namespace {

MxFormatDescriptionRef Description(const Bytes& entry) {
  MxFormatDescriptionRef d;
  EXPECT_EQ(MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
                nullptr, entry.b.data(), entry.size(), nullptr, MxFourCC("sbtl"), &d),
            kNoErr);
  return d;
}

MxFormatDescriptionRef TimedText(uint32_t flags) {
  return Description(
      TimedTextEntry(flags, 1, 0, Bytes().box("ftab", FontTable({{1, "Serif"}, {2, "Mono"}}))));
}

MxSampleBufferRef Sample(const Bytes& bytes, MxFormatDescription* description) {
  MxBlockBufferRef data;
  EXPECT_EQ(
      MxBlockBufferCreateWithMemoryBlock(nullptr, nullptr, bytes.size(), nullptr, nullptr, 0,
                                         bytes.size(), kMxBlockBufferAssureMemoryNowFlag, &data),
      kNoErr);
  if (bytes.size() > 0) {
    EXPECT_EQ(MxBlockBufferReplaceDataBytes(bytes.b.data(), data.get(), 0, bytes.size()), kNoErr);
  }
  MxSampleBufferRef sample;
  EXPECT_EQ(MxSampleBufferCreate(nullptr, data.get(), description, MxTimeMake(1, 1),
                                 MxTimeMake(2, 1), &sample),
            kNoErr);
  return sample;
}

// Decodes `bytes` as one sample of `d` with the track state `state`.
Status Decode(QorTextSampleBufferState* state, const Bytes& bytes, MxFormatDescription* d,
              MxAttributedStringRef* s, bool* forced = nullptr, bool* flag29 = nullptr,
              MxTextRect* box = nullptr) {
  MxSampleBufferRef sample = Sample(bytes, d);
  return QorTextSampleBufferCopyAttributedString(state, nullptr, sample.get(), s, forced, flag29,
                                                 box);
}

Bytes Text(const std::string& utf8) {
  return Bytes().u16(static_cast<unsigned>(utf8.size())).str(utf8);
}

// A style record: characters [start, end), font, face bits, size, colour.
Bytes Style(unsigned start, unsigned end, unsigned face, unsigned font = 1) {
  return Bytes().u16(start).u16(end).u16(font).u8(face).u8(24).u8(255).u8(0).u8(0).u8(255);
}

Bytes Styl(std::initializer_list<Bytes> records) {
  Bytes p;
  p.u16(static_cast<unsigned>(records.size()));
  for (const Bytes& r : records) p.raw(r);
  return Bytes().box("styl", p);
}

// Every run of `s` by longest effective range, as "location+length" and its attributes.
std::vector<std::pair<std::string, MxDictionary>> Attributes(const MxAttributedString* s) {
  std::vector<std::pair<std::string, MxDictionary>> runs;
  for (int64_t p = 0; p < s->length();) {
    MxRange r;
    const MxDictionary* a = s->AttributesAtIndex(p, {p, s->length() - p}, &r);
    runs.push_back({std::to_string(r.location) + "+" + std::to_string(r.length), *a});
    p = r.End();
  }
  return runs;
}

// The runs as "start+length:biu" with '-' for a clear bit.
std::string Runs(const MxAttributedString* s) {
  std::string out;
  for (const auto& [range, attributes] : Attributes(s)) {
    const auto& a = attributes;  // clang 14 cannot capture a structured binding
    auto flag = [&](const char* key, char c) {
      const MxValue* v = MxDictionaryGetValue(&a, key);
      return v && v->GetBool() == true ? c : '-';
    };
    out += (out.empty() ? "" : " ") + range + ":" + flag(kMxTextMarkupAttribute_BoldStyle, 'b') +
           flag(kMxTextMarkupAttribute_ItalicStyle, 'i') +
           flag(kMxTextMarkupAttribute_UnderlineStyle, 'u');
  }
  return out;
}

std::string UTF8(const MxAttributedString* s) {
  std::string text;
  EXPECT_EQ(MxTextCreateUTF8FromUTF16(s->string().data(), s->string().size(), &text), kNoErr);
  return text;
}

TEST(TextSample, DecodesTextStylesAndMarks) {
  Bytes thirteen = Bytes().u16(1).raw(Style(0, 1, 1));
  thirteen.b.resize(13);
  // `flags`: the description's display flags.
  auto expect = [](const char* name, const Bytes& sample, const std::string& text,
                   const std::string& runs, bool forced = false, uint32_t flags = 0) {
    SCOPED_TRACE(name);
    MxFormatDescriptionRef d = TimedText(flags);
    QorTextSampleBufferState state{};
    MxAttributedStringRef s;
    bool forcedOut = !forced;
    ASSERT_EQ(Decode(&state, sample, d.get(), &s, &forcedOut), kNoErr);
    ASSERT_TRUE(s);
    EXPECT_EQ(UTF8(s.get()), text);
    EXPECT_EQ(Runs(s.get()), runs);
    EXPECT_EQ(forcedOut, forced);
  };
  auto refuse = [](const char* name, const Bytes& sample, Status status) {
    MxFormatDescriptionRef d = TimedText(0);
    QorTextSampleBufferState state{};
    MxAttributedStringRef s;
    EXPECT_EQ(Decode(&state, sample, d.get(), &s), status) << name;
    EXPECT_FALSE(s) << name;
  };
  expect("empty text", Bytes().u16(0), "", "");
  expect("plain text takes the defaults", Text("Hi"), "Hi", "0+2:---");
  expect("CR LF pairs become LF and styles move with them",
         Text("Hi\r\nthere").raw(Styl({Style(4, 9, 1)})), "Hi\nthere", "0+3:--- 3+5:b--");
  expect("LF CR pairs when there is no CR LF", Text("a\n\rb\n\rc").raw(Styl({Style(0, 7, 2)})),
         "a\nb\nc", "0+5:-i-");
  expect("a removed pair still counts two stored characters",
         Text("a\r\nb\r\ncd").raw(Styl({Style(3, 4, 1)})), "a\nb\ncd", "0+2:--- 2+1:b-- 3+3:---");
  expect("a style over a removed pair shrinks", Text("ab\r\ncd").raw(Styl({Style(1, 5, 4)})),
         "ab\ncd", "0+1:--- 1+3:--u 4+1:---");
  expect("styles count code points, runs count UTF-16 units",
         Text("\xF0\x9F\x98\x80"
              "ab")
             .raw(Styl({Style(1, 2, 1)})),
         "\xF0\x9F\x98\x80"
         "ab",
         "0+2:--- 2+1:b-- 3+1:---");
  expect("overlapping records merge", Text("abcd").raw(Styl({Style(0, 3, 1), Style(2, 4, 2)})),
         "abcd", "0+2:b-- 2+2:-i-");
  expect("big-endian UTF-16 with its mark", Bytes().u16(6).u8(0xFE).u8(0xFF).u16('H').u16('i'),
         "Hi", "0+2:---");
  expect("little-endian UTF-16 with its mark",
         Bytes().u16(6).u8(0xFF).u8(0xFE).u8('H').u8(0).u8('i').u8(0), "Hi", "0+2:---");
  expect("frcd forces the sample", Text("x").box("frcd", {}), "x", "0+1:---", true);
  expect("all-forced descriptions force samples without boxes", Text("x"), "x", "0+1:---", true,
         0x80000000);
  expect("unknown boxes are skipped", Text("x").box("hlit", Bytes().u16(0).u16(1)).box("blnk", {}),
         "x", "0+1:---");
  expect("a style box of 13 payload bytes is ignored", Text("abc").box("styl", thirteen), "abc",
         "0+3:---");
  expect("a style count past the box is ignored",
         Text("abc").box("styl", Bytes().u16(2).raw(Style(0, 1, 1))), "abc", "0+3:---");
  refuse("a box of size 4 fails the sample", Text("x").u32(4).str("frcd"),
         kQorTextSampleErrMalformed);
  refuse("a box past the end fails the sample", Text("x").u32(20).str("frcd"),
         kQorTextSampleErrMalformed);
  refuse("negative text length", Bytes().u16(0xFFFF), kQorTextSampleErrMalformed);
  refuse("text past the end", Bytes().u16(5).str("abc"), kQorTextSampleErrMalformed);
  refuse("no length at all", Bytes().u8(0), kQorTextSampleErrMalformed);
  refuse("text that is not UTF-8", Text("a\xC3"), kQorTextSampleErrStringCreation);
  refuse("UTF-16 with a lone surrogate", Bytes().u16(4).u8(0xFE).u8(0xFF).u16(0xD800),
         kQorTextSampleErrStringCreation);
}

TEST(TextSample, BoxesWrapAndAttributes) {
  MxFormatDescriptionRef d = TimedText(0x20000000);
  QorTextSampleBufferState state{};
  Bytes bytes = Text("hello")
                    .raw(Styl({Style(1, 3, 1, 2)}))
                    .box("tbox", Bytes().u16(10).u16(20).u16(110).u16(320))
                    .box("twrp", Bytes().u8(1));
  MxAttributedStringRef s;
  bool forced = true, flag29 = false;
  MxTextRect box;
  ASSERT_EQ(Decode(&state, bytes, d.get(), &s, &forced, &flag29, &box), kNoErr);
  EXPECT_FALSE(forced);
  EXPECT_TRUE(flag29);
  EXPECT_EQ(box, (MxTextRect{20, 10, 300, 100}));
  MxRange range;
  const MxDictionary* a = s->AttributesAtIndex(0, {0, 5}, &range);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(range, (MxRange{0, 1}));
  EXPECT_EQ(*a->at(kMxTextMarkupAttribute_FontFamilyName).GetString(), "Serif");
  EXPECT_EQ(*a->at(kQorTextAttributeTextWrap).GetString(), "AutomaticSoftWrap");
  EXPECT_EQ(a->at(kQorTextAttributeFontSize).GetDouble(), 18.0);
  EXPECT_EQ(a->at(kQorTextAttributeDisplayFlags).GetInt32(), 0x20000000);
  EXPECT_EQ(a->at(kQorTextAttributeDisplayVerticalJust).GetInt32(), -1);
  EXPECT_EQ(a->at(kMxTextMarkupAttribute_ForegroundColorARGB),
            MxValue(MxArray{MxValue(1.0), MxValue(1.0), MxValue(128 / 255.0), MxValue(0.0)}));
  a = s->AttributesAtIndex(1, {0, 5}, &range);
  EXPECT_EQ(range, (MxRange{1, 2}));
  EXPECT_EQ(*a->at(kMxTextMarkupAttribute_FontFamilyName).GetString(), "Mono");
  EXPECT_EQ(a->at(kQorTextAttributeFontSize).GetDouble(), 24.0);
  EXPECT_EQ(a->at(kMxTextMarkupAttribute_BoldStyle).GetBool(), true);
  EXPECT_EQ(*a->at(kQorTextAttributeTextWrap).GetString(), "AutomaticSoftWrap");

  // Without a tbox the default text box comes back.
  ASSERT_EQ(Decode(&state, Text("x"), d.get(), &s, nullptr, nullptr, &box), kNoErr);
  EXPECT_EQ(box, (MxTextRect{2, 1, 202, 102}));
}

// A track's state remembers the styles it has seen; samples decoded one after the other with it,
// through more distinct styles than it keeps, decode as each does on its own.
TEST(TextSample, StylesSeenBeforeDecodeAsTheFirstTime) {
  MxFormatDescriptionRef d = TimedText(0);
  QorTextSampleBufferState track{};
  for (int i = 0; i < 60; ++i) {
    const auto style = static_cast<unsigned>((i * 7) % 20);
    Bytes bytes = Text(i % 3 ? "styled \xF0\x9F\x98\x80 text" : "two\r\nlines")
                      .raw(Styl({Style(1, 4 + style % 3, style % 8, 1 + style % 2),
                                 Style(3 + style % 2, 9, (style + 3) % 8, 2)}));
    if (i % 4 == 0) bytes.box("twrp", Bytes().u8(i % 8 == 0));
    QorTextSampleBufferState alone{};
    MxAttributedStringRef fromTrack, fromAlone;
    ASSERT_EQ(Decode(&track, bytes, d.get(), &fromTrack), kNoErr);
    ASSERT_EQ(Decode(&alone, bytes, d.get(), &fromAlone), kNoErr);
    EXPECT_EQ(Attributes(fromTrack.get()), Attributes(fromAlone.get())) << i;
  }
}

// One style record per character: in descending order they cost about what they cost in
// ascending order (O(n log n), not a copy of every later run per record), and records spread
// over many style boxes apply as one list.
TEST(TextSample, ManyStyleRecordsDecodeInLittleTime) {
  MxFormatDescriptionRef d = TimedText(0);
  constexpr unsigned kCharacters = 16384;
  const std::string text(kCharacters, 'a');
  Bytes descending, ascending, spread = Text(text);
  descending.u16(kCharacters);
  ascending.u16(kCharacters);
  for (unsigned k = 0; k < kCharacters; ++k) {
    const unsigned down = kCharacters - 1 - k;
    descending.raw(Style(down, down + 1, down & 1));
    ascending.raw(Style(k, k + 1, k & 1));
    if (k % 8 == 0) spread.box("styl", Bytes().u16(1).raw(Style(k, k + 1, 1)).u16(0));
  }
  struct Case {
    Bytes sample;
    const char* runs;  // how the runs begin
    std::chrono::steady_clock::duration decoding{};
  } cases[] = {
      {Text(text).box("styl", descending), "0+1:--- 1+1:b-- 2+1:---"},
      {Text(text).box("styl", ascending), "0+1:--- 1+1:b-- 2+1:---"},
      {spread, "0+1:b-- 1+7:--- 8+1:b--"},
  };
  for (Case& c : cases) {
    MxAttributedStringRef s;
    for (int repeat = 0; repeat < 2; ++repeat) {
      QorTextSampleBufferState state{};
      const auto began = std::chrono::steady_clock::now();
      ASSERT_EQ(Decode(&state, c.sample, d.get(), &s), kNoErr);
      c.decoding += std::chrono::steady_clock::now() - began;
    }
    const std::string runs = Runs(s.get());
    EXPECT_TRUE(runs.starts_with(c.runs)) << runs.substr(0, 40);
  }
  EXPECT_LT(cases[0].decoding, 3 * cases[1].decoding + std::chrono::milliseconds(100));
}

TEST(TextSample, SetUp) {
  QorTextSampleBufferState state{};
  EXPECT_EQ(QorTextSampleBufferSetUpState(&state, nullptr, nullptr),
            kQorTextSampleErrNoFormatDescription);
  // Timed text needs the default style's font in the font table.
  MxFormatDescriptionRef noTable = Description(TimedTextEntry(0, 1, 0, {}));
  EXPECT_EQ(QorTextSampleBufferSetUpState(&state, nullptr, noTable.get()),
            kMxTextDescErrMissingValue);
  MxFormatDescriptionRef otherFont =
      Description(TimedTextEntry(0, 1, 0, Bytes().box("ftab", FontTable({{2, "Mono"}}))));
  EXPECT_EQ(QorTextSampleBufferSetUpState(&state, nullptr, otherFont.get()),
            kMxTextDescErrMissingValue);
  EXPECT_FALSE(state.defaultAttributes);

  // The first description's defaults stay for the track.
  MxFormatDescriptionRef forced = TimedText(0x80000000), plain = TimedText(0);
  ASSERT_EQ(QorTextSampleBufferSetUpState(&state, nullptr, forced.get()), kNoErr);
  ASSERT_EQ(QorTextSampleBufferSetUpState(&state, nullptr, plain.get()), kNoErr);
  EXPECT_TRUE(state.allForced);

  // WebVTT-in-ISO: no defaults, flag 29 set, its configuration kept.
  Bytes entry;
  entry.u32(0).str("wvtt").u32(0).u16(0).u16(1).box("vttC", Bytes().str("WEBVTT"));
  MxFormatDescriptionRef vtt = Description(entry);
  QorTextSampleBufferState vttState{};
  MxAttributedStringRef s;
  bool flag29 = false;
  ASSERT_EQ(Decode(&vttState, Text("a<b"), vtt.get(), &s, nullptr, &flag29), kNoErr);
  EXPECT_TRUE(flag29);
  EXPECT_EQ(*vttState.webVTTConfiguration.GetData(), (MxData{'W', 'E', 'B', 'V', 'T', 'T'}));
  EXPECT_EQ(Runs(s.get()), "0+3:---");
  EXPECT_TRUE(s->AttributesAtIndex(0, {0, 3}, nullptr)->empty());
}

}  // namespace
