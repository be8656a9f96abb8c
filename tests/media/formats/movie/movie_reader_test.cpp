// The movie-file reader on files made by the box builder: layouts that must read the same,
// timing rules, track properties, stepping, bytes read, and broken files.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "media/core/error_signal.h"
#include "media/core/memory_byte_stream.h"
#include "media/formats/movie/language_code.h"
#include "media/formats/movie/movie_builder.h"
#include "media/formats/movie/movie_header.h"
#include "media/formats/movie/movie_reader_test_support.h"
#include "media/formats/movie/track_name.h"
#include "media/formats/reader_table.h"
#include "test_support.h"

using namespace movie_builder;

namespace {

Track SubtitleTrack() {
  Track t;
  t.samples = {TextSample("one"), TextSample("two"), TextSample(""), TextSample("four"),
               TextSample("five")};
  t.durations = {500, 1000, 250, 1250, 100};
  return t;
}

Movie OneTrack(const Track& t) {
  Movie m;
  m.tracks = {t};
  return m;
}

TEST(MovieReader, LayoutsReadTheSameSamples) {
  struct Case {
    const char* name;
    void (*change)(Movie&);
  };
  const Case cases[] = {
      {"moov first", [](Movie&) {}},
      {"moov after mdat", [](Movie& m) { m.moovFirst = false; }},
      {"64-bit chunk offsets", [](Movie& m) { m.tracks[0].co64 = true; }},
      {"compact sizes", [](Movie& m) { m.tracks[0].compactSizes = true; }},
      {"one sample per chunk", [](Movie& m) { m.tracks[0].samplesPerChunk = 1; }},
      {"three per chunk, short last chunk", [](Movie& m) { m.tracks[0].samplesPerChunk = 3; }},
      {"compressed header", [](Movie& m) { m.compressHeader = true; }},
      {"compressed header after mdat",
       [](Movie& m) {
         m.compressHeader = true;
         m.moovFirst = false;
       }},
  };
  const std::vector<ReadSample> expected = {
      {0, 1000, 500, 1000, "one", ""},     {500, 1000, 1000, 1000, "two", ""},
      {1500, 1000, 250, 1000, "", ""},     {1750, 1000, 1250, 1000, "four", ""},
      {3000, 1000, 100, 1000, "five", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Movie m = OneTrack(SubtitleTrack());
    c.change(m);
    OpenedMovie movie;
    ASSERT_EQ(movie.Open(Build(m)), kNoErr);
    std::vector<ReadSample> samples;
    ASSERT_EQ(ReadAllSamples(movie.reader.get(), 0, &samples), kNoErr);
    EXPECT_EQ(samples, expected);
  }
}

TEST(MovieReader, PresentationTimes) {
  using Edits = std::vector<Edit>;
  const int32_t big = static_cast<int32_t>(4000000000u);  // unsigned in version 0
  // `edits`: none when empty; `ptsMillis` in the media timescale of 1000.
  auto expect = [](const char* name, Edits edits, std::vector<int32_t> ctts, uint8_t cttsVersion,
                   std::vector<int64_t> ptsMillis, bool wideEdits = false) {
    SCOPED_TRACE(name);
    Track t = SubtitleTrack();
    if (!edits.empty()) t.edits = edits;
    if (!ctts.empty()) t.ctts = ctts;
    t.wideEdits = wideEdits;
    t.cttsVersion = cttsVersion;
    OpenedMovie movie;
    ASSERT_EQ(movie.Open(Build(OneTrack(t))), kNoErr);
    std::vector<ReadSample> samples;
    ASSERT_EQ(ReadAllSamples(movie.reader.get(), 0, &samples), kNoErr);
    std::vector<int64_t> pts;
    for (const ReadSample& s : samples) pts.push_back(s.ptsValue * 1000 / s.ptsTimescale);
    EXPECT_EQ(pts, ptsMillis);
  };
  expect("no edits", {}, {}, 0, {0, 500, 1500, 1750, 3000});
  expect("identity edit", {{1800, 0}}, {}, 0, {0, 500, 1500, 1750, 3000});
  // 600 and 300 movie ticks at 600 per second: 1.5 s of empty edits.
  expect("leading empty edits", {{600, -1}, {300, -1}, {1800, 0}}, {}, 0,
         {1500, 2000, 3000, 3250, 4500});
  expect("leading empty edit, 64-bit", {{600, -1}, {1800, 0}}, {}, 0,
         {1000, 1500, 2500, 2750, 4000}, true);
  expect("trimming edit is not applied", {{1800, 500}}, {}, 0, {0, 500, 1500, 1750, 3000});
  expect("two media edits are not applied", {{600, 0}, {600, 0}}, {}, 0,
         {0, 500, 1500, 1750, 3000});
  expect("composition offsets v0", {}, {10, 20, 0, 0, big}, 0,
         {10, 520, 1500, 1750, 3000 + 4000000000LL});
  expect("composition offsets v1", {}, {100, -100, 0, 0, -3000}, 1, {100, 400, 1500, 1750, 0});
}

TEST(MovieReader, TrackAndMovieProperties) {
  Movie m;
  m.timescale = 600;
  m.duration = 6000;
  Track video;
  video.trackID = 1;
  video.handler = "vide";
  video.sampleEntry = Box("mp4v", std::string(78, '\0'));
  video.samples = {"frame"};
  video.durations = {1000};
  Track english = SubtitleTrack();
  english.trackID = 2;
  english.language = PackLanguage("eng");
  english.name = std::string("Eng\tlish\x01subs");
  // Tags beyond the kept number are ignored.
  MxArray manyTags;
  for (size_t i = 0; i <= kMaxContentTags; ++i) {
    english.tagc.push_back("tag" + std::to_string(i));
    if (i < kMaxContentTags) manyTags.emplace_back(english.tagc.back());
  }
  // IDs that name no track, or a track named already, are dropped.
  english.forced = {3, 99, 3, 0, 1};
  Track forced = SubtitleTrack();
  forced.trackID = 3;
  forced.tkhdFlags = 0;
  forced.language = PackLanguage("fra");
  forced.elng = "fr-CA";
  // Every 'tagc' box counts, each up to its NUL: the track is auxiliary content whatever the
  // tag's place.
  forced.tagc = {"public.accessibility.transcribes-spoken-dialog",
                 std::string("public.auxiliary-content\0more", 29)};
  forced.name = "Forced";
  Track bad = SubtitleTrack();
  bad.trackID = 4;
  bad.handler = "text";
  bad.language = 2;  // a classic language number: German
  bad.elng = "de/../x";
  bad.forced = {1, 2};
  m.tracks = {video, english, forced, bad};

  OpenedMovie movie;
  ASSERT_EQ(movie.Open(Build(m)), kNoErr);
  MxValue v;
  ASSERT_EQ(movie.reader->CopyProperty(kQorFormatReaderProperty_Duration, &v), kNoErr);
  MxTime duration = MxTimeMakeFromDictionary(v.GetDictionary());
  EXPECT_EQ(duration.value, 6000);
  EXPECT_EQ(duration.timescale, 600);
  ASSERT_EQ(movie.reader->CopyProperty(kQorFormatReaderProperty_AccurateDurationIsKnown, &v),
            kNoErr);
  EXPECT_EQ(v.GetBool(), true);
  ASSERT_EQ(movie.reader->CopyProperty(kQorFormatReaderProperty_TrackReferenceDictionary, &v),
            kNoErr);
  EXPECT_EQ(v,
            MxValue(MxDictionary{{"forc", MxValue(MxArray{int64_t(2), int64_t(3), int64_t(2),
                                                          int64_t(1), int64_t(4), int64_t(2)})}}));

  struct Expected {
    QorTrackID id;
    const char* mediaType;
    const char* language;
    std::optional<std::string> extended;
    MxValue name;
    bool enabled, excluded;
    MxArray tags;
  };
  const Expected expected[] = {
      {1, "vide", "und", std::nullopt, MxValue(), true, false, {}},
      {2, "sbtl", "en", std::nullopt, MxValue(MxDictionary{{"en", "Eng lish subs"}}), true, false,
       manyTags},
      {3, "sbtl", "fr", "fr-CA", MxValue(MxDictionary{{"fr-CA", "Forced"}}), false, true,
       MxArray{forced.tagc[0], "public.auxiliary-content"}},
      {4, "text", "de", std::nullopt, MxValue(), true, false, {}},
  };
  int64_t count = 0;
  ASSERT_EQ(QorFormatReaderGetTrackCount(movie.reader.get(), &count), kNoErr);
  ASSERT_EQ(count, 4);
  for (int64_t i = 0; i < count; ++i) {
    SCOPED_TRACE(i);
    const Expected& e = expected[i];
    QorTrackReaderRef track;
    FourCC type = 0;
    QorTrackID id = 0;
    ASSERT_EQ(QorFormatReaderCopyTrackByIndex(movie.reader.get(), i, &track, &type, &id), kNoErr);
    EXPECT_EQ(id, e.id);
    EXPECT_EQ(MxFourCCToString(type), e.mediaType);
    auto property = [&](const char* key) {
      MxValue value;
      EXPECT_EQ(track->CopyProperty(key, &value), kNoErr) << key;
      return value;
    };
    EXPECT_EQ(property(kQorTrackProperty_LanguageCode), MxValue(e.language));
    EXPECT_EQ(property(kQorTrackProperty_ExtendedLanguageTagString),
              e.extended ? MxValue(*e.extended) : MxValue());
    EXPECT_EQ(property(kQorTrackProperty_TrackName), e.name);
    EXPECT_EQ(property(kQorTrackProperty_Enabled).GetBool(), e.enabled);
    EXPECT_EQ(property(kQorTrackProperty_ExcludeFromAutoSelection).GetBool(), e.excluded);
    EXPECT_EQ(property(kQorTrackProperty_ContentTags), MxValue(e.tags));
    v = property(kQorTrackProperty_FormatDescriptionArray);
    ASSERT_TRUE(v.GetArray() && v.GetArray()->size() == 1u);
    auto* description = (*v.GetArray())[0].GetObjectAs<MxFormatDescription>();
    ASSERT_TRUE(description);
    EXPECT_EQ(MxFourCCToString(description->mediaType()), e.mediaType);
    EXPECT_EQ(MxFourCCToString(description->mediaSubType()), i == 0 ? "mp4v" : "tx3g");
  }
}

TEST(MovieReader, LanguageCodes) {
  const std::pair<uint16_t, const char*> cases[] = {
      {PackLanguage("eng"), "en"},
      {PackLanguage("deu"), "de"},
      {PackLanguage("heb"), "he"},
      {PackLanguage("haw"), "haw"},
      {PackLanguage("und"), "und"},
      {0x7FFF, "und"},
      {0x0400, "und"},
      {0, "en"},
      {2, "de"},
      {11, "ja"},
      {150, "az"},
      {95, "und"},
      {0x3FF, "und"},
  };
  for (auto [code, tag] : cases) EXPECT_EQ(LanguageTagFromMediaLanguage(code), tag) << code;

  const std::pair<const char*, bool> tags[] = {
      {"en", true},         {"en-US", true},     {"zh-Hant-TW", true},   {"sgn-ase", true},
      {"de-CH-1901", true}, {"x-private", true}, {"en-a-bbb-x-c", true}, {"", false},
      {"e", false},         {"en-", false},      {"en--US", false},      {"en/US", false},
      {"en.US", false},     {"../en", false},    {"en\nUS", false},      {"toolongtag", false},
      {"en-a", false},      {"1en", false},      {"x", false},
  };
  for (auto [tag, ok] : tags) EXPECT_EQ(IsWellFormedLanguageTag(tag), ok) << tag;

  EXPECT_EQ(TrackNameFromUserData("A\x01"
                                  "b\x7f"
                                  "c\xc2\x85"
                                  "d"),
            "A b c d");
  EXPECT_EQ(TrackNameFromUserData("caf\xc3\xa9 \xff"), "caf\xc3\xa9 \xEF\xBF\xBD");
}

TEST(MovieReader, StepsStopAtTheEndsAndWalkBack) {
  Track t = SubtitleTrack();
  t.samplesPerChunk = 2;
  t.ctts = std::vector<int32_t>{5, 5, 0, 7, 7};
  OpenedMovie movie;
  ASSERT_EQ(movie.Open(Build(OneTrack(t))), kNoErr);
  // Each step lands on the sample a forward read gives, times included.
  std::vector<ReadSample> forward;
  ASSERT_EQ(ReadAllSamples(movie.reader.get(), 0, &forward), kNoErr);
  TrackCursor at;
  ASSERT_EQ(at.Open(movie.reader.get(), 0), kNoErr);
  auto textAt = [&] {
    ReadSample s;
    EXPECT_EQ(ReadSampleAtCursor(at.generator.get(), at.cursor.get(), &s), kNoErr);
    EXPECT_NE(std::find(forward.begin(), forward.end(), s), forward.end()) << s.text;
    return s.text;
  };
  int64_t stepped = 0;
  const std::tuple<int64_t, int64_t, const char*> steps[] = {
      {-1, 0, "one"},  {3, 3, "four"},  {10, 1, "five"}, {1, 0, "five"},  {-1, -1, "four"},
      {-2, -2, "two"}, {-1, -1, "one"}, {4, 4, "five"},  {-3, -3, "two"}, {-9, -1, "one"},
  };
  for (auto [ask, moved, text] : steps) {
    ASSERT_EQ(QorSampleCursorStep(at.cursor.get(), ask, &stepped), kNoErr);
    EXPECT_EQ(stepped, moved) << ask;
    EXPECT_EQ(textAt(), text) << ask;
  }
}

// Bytes this process has read through read calls, from any file.
uint64_t ReadCharCount() {
  std::istringstream io(ReadFile("/proc/self/io"));
  std::string key;
  uint64_t value = 0;
  while (io >> key >> value && key != "rchar:") {
  }
  return value;
}

// Opening reads the header; each subtitle sample then costs exactly its own bytes, never the
// video around it, even through a file stream whose cache reads 4 KiB at a time.
TEST(MovieReader, ReadsOnlyTheHeaderAndTheSamplesAskedFor) {
  Movie m;
  Track video;
  video.trackID = 1;
  video.handler = "vide";
  video.sampleEntry = Box("mp4v", std::string(78, '\0'));
  for (int i = 0; i < 8; ++i) video.samples.push_back(std::string(100000, char('A' + i)));
  video.durations.assign(8, 100);
  Track subtitles = SubtitleTrack();
  subtitles.trackID = 2;
  m.tracks = {video, subtitles};
  m.moovFirst = false;
  const std::string file = Build(m);
  ScratchDir dir;
  WriteFile(dir / "movie.mp4", file);

  const uint64_t probe = ReadCharCount(), start = ReadCharCount();
  const uint64_t probeCost = start - probe;  // each count includes reading the previous one
  OpenedMovie movie;
  ASSERT_EQ(movie.OpenPath(dir / "movie.mp4"), kNoErr);
  const uint64_t opened = ReadCharCount();
  std::vector<ReadSample> samples;
  ASSERT_EQ(ReadAllSamples(movie.reader.get(), 1, &samples), kNoErr);
  const uint64_t done = ReadCharCount();
  uint64_t sampleBytes = 0;
  for (const ReadSample& s : samples) sampleBytes += s.bytes.size();
  EXPECT_EQ(samples.size(), 5u);
  const uint64_t header = file.size() - (file.rfind("moov") - 4);
  EXPECT_LE(opened - start - probeCost, header + 2 * 4096);  // box headers go through the cache
  EXPECT_NEAR(double(done - opened - probeCost), double(sampleBytes), 4);
}

TEST(MovieReader, BrokenFiles) {
  const std::string good = Build(OneTrack(SubtitleTrack()));
  const size_t moov = good.find("moov") - 4;
  struct Case {
    const char* name;
    std::string file;
    Status open;         // expected from opening
    std::string origin;  // where the failure began, as the driver reports it
  };
  // Where `type` starts in `file`.
  auto placed = [](const std::string& file, const char* type) {
    return std::string("'") + type + "' at byte " + std::to_string(file.find(type) - 4) + ": ";
  };
  auto with = [](void (*change)(Movie&)) {
    Movie m = OneTrack(SubtitleTrack());
    change(m);
    return Build(m);
  };
  auto replaceAt = [&](size_t at, const std::string& bytes) {
    std::string f = good;
    f.replace(at, bytes.size(), bytes);
    return f;
  };
  const std::string hugeCount = FullBox("stts", 0, 0, U32(0xFFFFFFFF) + U32(1) + U32(1));
  std::string withHugeCount = good;
  withHugeCount.replace(withHugeCount.find("stts") - 4, 24, hugeCount);
  std::string badInflate = with([](Movie& m) { m.compressHeader = true; });
  badInflate[badInflate.find("cmvd") + 7] ^= 1;  // declared size one off
  std::string unknownMethod = with([](Movie& m) { m.compressHeader = true; });
  unknownMethod.replace(unknownMethod.find("zlib"), 4, "lzma");
  // The tracks of a compressed movie box keep views into its inflated bytes: a second one is
  // refused rather than inflated over them.
  std::string twoCompressed = with([](Movie& m) { m.compressHeader = true; });
  const size_t moovAt = twoCompressed.find("moov") - 4, mdatAt = twoCompressed.find("mdat") - 4;
  const std::string cmov = twoCompressed.substr(moovAt + 8, mdatAt - moovAt - 8);
  twoCompressed.replace(moovAt, mdatAt - moovAt, Box("moov", cmov + cmov));
  // Enough compressed bytes to be believed, for a movie box just past the size read into memory.
  const std::string inflatesPastTheBound =
      Box("ftyp", "isom") +
      Box("moov", Box("cmov", Box("dcom", "zlib") +
                                  Box("cmvd", U32(uint32_t(kMaxMovieHeaderBytes) + 1) +
                                                  std::string(kMaxMovieHeaderBytes / 1000, 'x'))));

  const Case cases[] = {
      {"empty", "", kMovieErrMalformed, "the file has no movie box"},
      {"no movie box", Box("ftyp", "isom") + Box("mdat", "abc"), kMovieErrMalformed,
       "the file has no movie box"},
      {"box larger than the file", replaceAt(moov, U32(0x7FFFFFFF)), kMovieErrMalformed,
       placed(good, "moov") + "a box of 2,147,483,647 bytes does not fit in the " +
           std::to_string(good.size() - moov) + " bytes left"},
      {"box smaller than its header", replaceAt(moov, U32(4)), kMovieErrMalformed,
       placed(good, "moov") + "a box of 4 bytes is smaller than its 8 byte header"},
      {"64-bit size past the end", replaceAt(moov, U32(1) + "moov" + U64(1ull << 62)),
       kMovieErrMalformed, ""},
      {"size 0 runs to the end", Box("ftyp", "isom") + U32(0) + "free", kMovieErrMalformed,
       "the file has no movie box"},
      {"fragment box", Box("ftyp", "isom") + Box("moof", "") + good.substr(moov),
       kMovieErrFragmented, "'moof' at byte 12: the movie is fragmented"},
      {"movie extends box",
       with([](Movie& m) { m.extraMovieChildren = Box("mvex", Box("trex", "")); }),
       kMovieErrFragmented, ""},
      {"entry count beyond its box", withHugeCount, kMovieErrMalformed,
       placed(good, "stts") + "4,294,967,295 entries do not fit in 8 bytes"},
      {"sizes disagree with times", with([](Movie& m) { m.tracks[0].durations.push_back(5); }),
       kMovieErrMalformed, placed(good, "stbl") + "'stts' times 6 samples of 5"},
      {"sample sizes beyond their box", replaceAt(good.find("stsz") + 12, U32(0x7FFFFFFF)),
       kMovieErrMalformed, placed(good, "stsz") + "2,147,483,647 entries do not fit in 20 bytes"},
      {"media timescale 0", replaceAt(good.find("mdhd") + 16, U32(0)), kMovieErrMalformed,
       placed(good, "mdhd") + "the timescale is 0"},
      {"chunk runs out of order", replaceAt(good.find("stsc") + 12, U32(2)), kMovieErrMalformed,
       placed(good, "stbl") + "the first 'stsc' run starts at chunk 2"},
      {"track without a header", replaceAt(good.find("tkhd"), "free"), kMovieErrMalformed,
       placed(good, "trak") + "the track has no 'tkhd' box"},
      {"compressed size one off", badInflate, kMovieErrMalformed,
       placed(badInflate, "cmov") + "the data does not inflate to the 556 bytes declared"},
      {"unknown compression", unknownMethod, kMovieErrUnsupported,
       placed(unknownMethod, "cmov") + "the compression method is not 'zlib'"},
      {"two compressed movie boxes", twoCompressed, kMovieErrMalformed, ""},
      {"compressed movie box past the bound", inflatesPastTheBound, kMovieErrUnsupported,
       placed(inflatesPastTheBound, "cmov") +
           "an inflated size of 134,217,729 bytes is over 134,217,728"},
      {"deep nesting is skipped", with([](Movie& m) {
         static std::string nested;
         nested = "x";
         for (int i = 0; i < 2000; ++i) nested = Box("udta", nested);
         m.extraMovieChildren = nested;
       }),
       kNoErr, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    OpenedMovie movie;
    QorErrorOriginClear();
    EXPECT_EQ(movie.Open(c.file), c.open);
    const QorErrorOrigin* origin = QorErrorOriginOf(c.open);
    if (!c.origin.empty()) {
      ASSERT_NE(origin, nullptr);
      EXPECT_EQ(QorDescribeErrorOrigin(*origin), c.origin);
    }
  }

  // A chunk offset past the end of the file opens, and reading the sample fails.
  std::string pastEnd = good;
  const size_t stco = pastEnd.find("stco");
  pastEnd.replace(stco + 12, 4, U32(0x7FFFFF00));
  OpenedMovie movie;
  ASSERT_EQ(movie.Open(pastEnd), kNoErr);
  std::vector<ReadSample> samples;
  QorErrorOriginClear();
  EXPECT_EQ(ReadAllSamples(movie.reader.get(), 0, &samples), kMovieErrSampleOutOfRange);
  const QorErrorOrigin* origin = QorErrorOriginOf(kMovieErrSampleOutOfRange);
  ASSERT_NE(origin, nullptr);
  EXPECT_EQ(QorDescribeErrorOrigin(*origin),
            "a sample of 5 bytes at byte 2,147,483,392 ends past the " +
                std::to_string(pastEnd.size()) + " byte file");
}

// The movie fuzzer's seeds are files the reader reads to the end, short enough to be fuzzed whole.
TEST(MovieReader, FuzzerSeedsAreReadWhole) {
  const std::string dir = HLSVTT_SOURCE_DIR "/fuzz/seeds/movie";
  size_t seeds = 0;
  for (const std::string& name : ListDir(dir)) {
    if (name.starts_with("README")) continue;
    SCOPED_TRACE(name);
    seeds++;
    EXPECT_LE(ReadFile(dir + "/" + name).size(), 8192u);  // the fuzzer's longest input
    OpenedMovie movie;
    ASSERT_EQ(movie.OpenPath(dir + "/" + name), kNoErr);
    int64_t tracks = 0;
    ASSERT_EQ(QorFormatReaderGetTrackCount(movie.reader.get(), &tracks), kNoErr);
    size_t samples = 0;
    for (int64_t i = 0; i < tracks; ++i) {
      std::vector<ReadSample> read;
      EXPECT_EQ(ReadAllSamples(movie.reader.get(), i, &read), kNoErr) << "track " << i;
      samples += read.size();
    }
    EXPECT_GT(samples, 0u);
  }
  EXPECT_GE(seeds, 5u);
}

}  // namespace
