#include "media/formatreader/text_format_description.h"

#include <gtest/gtest.h>

#include "media/formatreader/text_bytes.h"

namespace {

constexpr FourCC kSbtl = MxFourCC("sbtl");

Status Make(const Bytes& entry, MxFormatDescriptionRef* out, FourCC type = kSbtl) {
  return MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
      nullptr, entry.b.data(), entry.size(), nullptr, type, out);
}

const MxDictionary* Dict(const MxFormatDescription* d, const char* key) {
  const MxValue* v = MxFormatDescriptionGetExtension(d, key);
  return v ? v->GetDictionary() : nullptr;
}

// A classic text entry: flags, justification, background, box, style, font name, then atoms.
Bytes ClassicTextEntry(const std::string& fontName, const Bytes& atoms = {}) {
  Bytes e;
  e.u32(0).str("text").u32(0).u16(0).u16(1);
  e.u32(0x40000000).u32(0x12345601);                   // flags, justification
  e.u16(1).u16(2).u16(3);                              // background
  e.u16(10).u16(20).u16(110).u16(220);                 // text box
  e.u32(0).u16(12).u16(9).u16(3).u8(2).u8(0).u16(14);  // style
  e.u16(0xFFFF).u16(0xFFFF).u16(0);                    // colour
  e.u8(static_cast<unsigned>(fontName.size())).str(fontName).raw(atoms);
  return e;
}

TEST(TextFormatDescription, TimedTextEntryGivesEveryDefault) {
  MxFormatDescriptionRef d;
  ASSERT_EQ(
      Make(TimedTextEntry(0xA0000000, 1, 5, Bytes().box("ftab", FontTable({{1, "Serif"}}))), &d),
      kNoErr);
  EXPECT_EQ(d->mediaType(), kSbtl);
  EXPECT_EQ(MxFormatDescriptionGetMediaSubType(d.get()), MxFourCC("tx3g"));
  int32_t flags = 0;
  ASSERT_EQ(MxTextFormatDescriptionGetDisplayFlags(d.get(), &flags), kNoErr);
  EXPECT_EQ(static_cast<uint32_t>(flags), 0xA0000000u);
  int8_t h = 0, v = 0;
  ASSERT_EQ(MxTextFormatDescriptionGetJustification(d.get(), &h, &v), kNoErr);
  EXPECT_EQ(h, 1);
  EXPECT_EQ(v, -1);
  MxTextRect box;
  ASSERT_EQ(MxTextFormatDescriptionGetDefaultTextBox(d.get(), true, 0, &box), kNoErr);
  EXPECT_EQ(box, (MxTextRect{2, 1, 202, 102}));
  ASSERT_EQ(MxTextFormatDescriptionGetDefaultTextBox(d.get(), false, 500, &box), kNoErr);
  EXPECT_EQ(box.y, 499);  // measured from the bottom, still from the top edge
  int16_t font = 0;
  bool bold = false, italic = true, underline = false;
  double size = 0, color[4] = {};
  ASSERT_EQ(MxTextFormatDescriptionGetDefaultStyle(d.get(), &font, &bold, &italic, &underline,
                                                   &size, color),
            kNoErr);
  EXPECT_EQ(font, 1);
  EXPECT_TRUE(bold);
  EXPECT_FALSE(italic);
  EXPECT_TRUE(underline);
  EXPECT_EQ(size, 18);
  EXPECT_DOUBLE_EQ(color[0], 1.0);
  EXPECT_DOUBLE_EQ(color[1], 128 / 255.0);
  EXPECT_DOUBLE_EQ(color[2], 0.0);
  EXPECT_DOUBLE_EQ(color[3], 1.0);
  const std::string* name = nullptr;
  ASSERT_EQ(MxTextFormatDescriptionGetFontName(d.get(), 1, &name), kNoErr);
  EXPECT_EQ(*name, "Serif");
  EXPECT_EQ(MxTextFormatDescriptionGetFontName(d.get(), 2, &name), kMxTextDescErrMissingValue);
  // The stored values keep their signed widths.
  const MxDictionary* background = Dict(d.get(), "BackgroundColor");
  ASSERT_NE(background, nullptr);
  EXPECT_EQ(background->at("Alpha").GetInt32(), 40);
  EXPECT_EQ(Dict(d.get(), "DefaultStyle")->at("FontFace").GetInt32(), 5);
}

TEST(TextFormatDescription, ClassicTextEntry) {
  MxFormatDescriptionRef d;
  ASSERT_EQ(Make(ClassicTextEntry(""), &d, MxFourCC("text")), kNoErr);
  const MxValue* fontName = MxFormatDescriptionGetExtension(d.get(), "DefaultFontName");
  ASSERT_NE(fontName, nullptr);
  EXPECT_EQ(*fontName->GetString(), "");  // an empty name is still a name
  int8_t h = 0, v = 5;
  ASSERT_EQ(MxTextFormatDescriptionGetJustification(d.get(), &h, &v), kNoErr);
  EXPECT_EQ(h, 1);  // the low byte of 0x12345601
  EXPECT_EQ(v, 0);
  double color[4] = {};
  int16_t font = 0;
  ASSERT_EQ(MxTextFormatDescriptionGetDefaultStyle(d.get(), &font, nullptr, nullptr, nullptr,
                                                   nullptr, color),
            kNoErr);
  EXPECT_EQ(font, 3);
  EXPECT_NEAR(color[0], 0.09997, 1e-5);  // 65535 / 655535
  EXPECT_DOUBLE_EQ(color[2], 0.0);
  EXPECT_DOUBLE_EQ(color[3], 1.0);
  const std::string* name = nullptr;
  ASSERT_EQ(MxTextFormatDescriptionGetFontName(d.get(), 77, &name), kNoErr);  // any identifier
  EXPECT_EQ(*name, "");
  EXPECT_EQ(Dict(d.get(), "DefaultStyle")->at("Height").GetInt32(), 12);
  EXPECT_EQ(MxFormatDescriptionGetExtension(d.get(), "HorizontalJustification"), nullptr);
}

TEST(TextFormatDescription, ExtensionAtomsAndFontTables) {
  // `fonts`: identifier text and name; `otherAtoms`: the types kept besides a font table.
  auto expect = [](const char* name, const Bytes& atoms,
                   std::vector<std::pair<const char*, const char*>> fonts,
                   std::vector<const char*> otherAtoms) {
    SCOPED_TRACE(name);
    MxFormatDescriptionRef d;
    ASSERT_EQ(Make(TimedTextEntry(0, 1, 0, atoms), &d), kNoErr);
    const MxDictionary* table = Dict(d.get(), "FontTable");
    MxDictionary expected;
    for (auto [id, font] : fonts) expected.emplace(id, MxValue(font));
    if (fonts.empty()) {
      EXPECT_EQ(table, nullptr);
    } else {
      ASSERT_NE(table, nullptr);
      EXPECT_EQ(*table, expected);
    }
    const MxDictionary* kept = Dict(d.get(), "SampleDescriptionExtensionAtoms");
    EXPECT_EQ(kept ? kept->size() : 0, otherAtoms.size());
    for (const char* type : otherAtoms) EXPECT_TRUE(kept && kept->count(type)) << type;
  };
  const Bytes twoOfAKind = Bytes()
                               .box("abcd", Bytes().u8(1))
                               .box("abcd", Bytes().u8(2))
                               .box("ftab", FontTable({{3, "X"}}));
  expect("no atoms", {}, {}, {});
  expect("first of a repeated identifier wins, empty names skipped",
         Bytes().box("ftab", FontTable({{1, "A"}, {2, ""}, {1, "B"}, {65535, "C"}})),
         {{"1", "A"}, {"-1", "C"}}, {});
  expect("other atoms by type, first wins", twoOfAKind, {{"3", "X"}}, {"abcd"});
  expect("a count that cannot fit ignores the atom",
         Bytes().box("ftab", Bytes().u16(5).u16(1).u8(1).str("A")).box("zzzz", Bytes().u8(0)), {},
         {"zzzz"});
  expect(
      "an entry past the atom drops the table",
      Bytes().box("ftab", FontTable({{1, "A"}})).box("ftab", Bytes().u16(1).u16(2).u8(9).str("ab")),
      {}, {});
  expect("an 8-byte atom ends the walk", Bytes().box("xxxx", {}).box("abcd", Bytes().u8(1)), {},
         {});
  expect("an atom longer than what is left ends the walk", Bytes().u32(100).str("abcd").u8(0).u8(0),
         {}, {});
  // The first "abcd" atom's payload is the one kept.
  MxFormatDescriptionRef d;
  ASSERT_EQ(Make(TimedTextEntry(0, 1, 0, twoOfAKind), &d), kNoErr);
  EXPECT_EQ(*Dict(d.get(), "SampleDescriptionExtensionAtoms")->at("abcd").GetData(), MxData{1});
}

TEST(TextFormatDescription, WebVTTEntriesKeepOnlyTheirAtoms) {
  Bytes entry;
  entry.u32(0)
      .str("wvtt")
      .u32(0)
      .u16(0)
      .u16(1)
      .box("vttC", Bytes().str("WEBVTT"))
      .box("ftab", FontTable({{1, "A"}}));
  MxFormatDescriptionRef d;
  ASSERT_EQ(Make(entry, &d), kNoErr);
  const MxDictionary* atoms = Dict(d.get(), "SampleDescriptionExtensionAtoms");
  ASSERT_NE(atoms, nullptr);
  EXPECT_EQ(atoms->size(), 2u);  // "ftab" is an ordinary atom here
  EXPECT_EQ(MxFormatDescriptionGetExtensions(d.get())->size(), 1u);
  int32_t flags;
  EXPECT_EQ(MxTextFormatDescriptionGetDisplayFlags(d.get(), &flags),
            kMxTextDescErrWebVTTDescription);
  EXPECT_EQ(MxTextFormatDescriptionGetDefaultStyle(d.get(), nullptr, nullptr, nullptr, nullptr,
                                                   nullptr, nullptr),
            kMxTextDescErrWebVTTDescription);
}

TEST(TextFormatDescription, RefusedEntries) {
  Bytes shortClassic = ClassicTextEntry("Helvetica");
  shortClassic.b.resize(shortClassic.size() - 1);  // the name runs past the entry
  Bytes timed = TimedTextEntry(0, 1, 0, {});
  Bytes timed45 = timed;
  timed45.b.resize(45);
  Bytes wvtt15;
  wvtt15.u32(15).str("wvtt").u16(0).u16(0).u16(0).u8(0);
  struct Case {
    const char* name;
    Bytes entry;
    Status status;
  } cases[] = {
      {"unknown entry type", TimedTextEntry(0, 1, 0, {}, "mp4v"), kMxTextDescErrUnknownEntryType},
      {"timed text one byte short", timed45, kMxTextDescErrMalformed},
      {"classic name past the end", shortClassic, kMxTextDescErrMalformed},
      {"WebVTT header short", wvtt15, kMxTextDescErrMalformed},
      {"atom size below 8", TimedTextEntry(0, 1, 0, Bytes().u32(4).str("abcd").u8(0)),
       kMxTextDescErrMalformed},
      {"no type at all", Bytes().u32(8), kMxTextDescErrMalformed},
  };
  for (const Case& c : cases) {
    MxFormatDescriptionRef d;
    EXPECT_EQ(Make(c.entry, &d), c.status) << c.name;
    EXPECT_FALSE(d) << c.name;
  }
  // "drmt" reads as timed text; a 46-byte entry has no font table.
  MxFormatDescriptionRef d;
  ASSERT_EQ(Make(TimedTextEntry(7, 1, 0, {}, "drmt"), &d), kNoErr);
  int32_t flags = 0;
  ASSERT_EQ(MxTextFormatDescriptionGetDisplayFlags(d.get(), &flags), kNoErr);
  EXPECT_EQ(flags, 7);
  EXPECT_EQ(Dict(d.get(), "FontTable"), nullptr);
  // Getters refuse descriptions that are not text.
  MxFormatDescriptionRef video;
  ASSERT_EQ(Make(timed, &video, MxFourCC("vide")), kNoErr);
  EXPECT_EQ(MxTextFormatDescriptionGetDisplayFlags(video.get(), &flags),
            kMxTextDescErrMissingValue);
  EXPECT_EQ(MxTextFormatDescriptionGetDisplayFlags(nullptr, &flags), kMxTextDescErrMissingValue);
}

}  // namespace
